#include "machine/privileges.h"

#include <utility>

namespace machine {

bool Privileges::IsEnabled(uint32_t privilege) const
{
    const auto found = held_.find(privilege);
    return found != held_.end() && found->second;
}

std::optional<bool> Privileges::Adjust(uint32_t privilege, bool enable)
{
    const auto found = held_.find(privilege);
    return found != held_.end() ? std::optional(std::exchange(found->second, enable)) : std::nullopt;
}

}  // namespace machine
