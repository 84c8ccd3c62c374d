#include "machine/calls.h"

#include "machine/nt_values.h"

namespace machine {

bool CallPattern::Matches(const CallRecord& record) const
{
    return (!kind || *kind == record.kind) && (name.empty() || name == record.name) &&
           (object.empty() || record.object.find(object) != std::string::npos) && (!code || *code == record.code);
}

bool IsFaultable(CallKind kind)
{
    switch (kind) {
    case CallKind::Close:
    case CallKind::Free:
    case CallKind::Time:
    case CallKind::Random:
    case CallKind::Release:
        return false;
    default:
        return true;
    }
}

uint32_t NaturalFailure(CallKind kind)
{
    switch (kind) {
    case CallKind::Allocate:
    case CallKind::Win32Bool:
    case CallKind::Free:
    case CallKind::Random:
        return 0;
    case CallKind::Win32Wait:
        return kWaitFailed;
    case CallKind::Privileged:
        return static_cast<uint32_t>(kPrivilegeNotHeld);
    case CallKind::LoadLibrary:
        return static_cast<uint32_t>(kDllNotFound);
    case CallKind::GetProcedure:
        return static_cast<uint32_t>(kEntryPointMissing);
    case CallKind::Win32Error:
        return kErrorGenFailure;
    case CallKind::ComMethod:
        return static_cast<uint32_t>(kErrorUnexpected);
    default:
        return static_cast<uint32_t>(kUnexpectedIoError);
    }
}

}  // namespace machine
