#include "machine/com_apartments.h"

#include <algorithm>

namespace machine {
namespace {

constexpr uint32_t kApartmentThreaded = 0x2;
constexpr uint32_t kKnownFlags = 0xE;

}  // namespace

HResult ComApartments::Initialize(const void* reserved, uint32_t flags)
{
    if (reserved != nullptr || (flags & ~kKnownFlags) != 0) {
        return kInvalidArgument;
    }
    const bool single = (flags & kApartmentThreaded) != 0;
    const Apartment apartment = single ? Apartment::SingleThreaded : Apartment::Multithreaded;
    const auto [member, isNew] = members_.try_emplace(std::this_thread::get_id(), Membership{apartment, 0, false});
    if (member->second.apartment != apartment) {
        return kk::kRpcEChangedMode;
    }
    ++member->second.count;
    return isNew ? kOk : kFalse;
}

bool ComApartments::Uninitialize()
{
    const auto member = members_.find(std::this_thread::get_id());
    if (member == members_.end() || member->second.count == 0) {
        return false;
    }
    if (--member->second.count == 0 && !member->second.preset) {
        members_.erase(member);
    }
    return true;
}

HResult ComApartments::InitializeSecurity()
{
    if (!IsUsable()) {
        return kComNotInitialized;
    }
    if (securityIsSet_) {
        return kComTooLate;
    }
    securityIsSet_ = true;
    return kOk;
}

void ComApartments::Preset(Apartment apartment)
{
    members_[std::this_thread::get_id()] = {apartment, 0, true};
}

bool ComApartments::IsUsable() const
{
    return members_.contains(std::this_thread::get_id()) ||
           std::any_of(members_.begin(), members_.end(),
                       [](const auto& member) { return member.second.apartment == Apartment::Multithreaded; });
}

std::vector<std::string> ComApartments::Imbalances() const
{
    std::vector<std::string> lines;
    for (const auto& [thread, member] : members_) {
        if (member.count != 0) {
            lines.push_back("a thread did not leave COM, which it joined " + std::to_string(member.count) + " times");
        }
    }
    return lines;
}

}  // namespace machine
