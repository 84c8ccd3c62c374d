#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "machine/nt_values.h"

namespace machine {

/// The privileges that the process's token holds, each enabled or not. At first it is the shutdown privilege, not
/// enabled, as an administrator's process begins.
class Privileges {
public:
    void Hold(uint32_t privilege, bool enabled = false) { held_[privilege] = enabled; }
    void TakeAway(uint32_t privilege) { held_.erase(privilege); }

    bool IsEnabled(uint32_t privilege) const;

    /// Whether it was enabled before; nothing when it is not held.
    std::optional<bool> Adjust(uint32_t privilege, bool enable);

private:
    std::map<uint32_t, bool> held_ = {{kShutdownPrivilege, false}};
};

}  // namespace machine
