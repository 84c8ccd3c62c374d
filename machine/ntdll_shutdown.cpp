#include "core/nt.h"
#include "machine/gate.h"
#include "machine/machine.h"

using namespace machine;

namespace {

constexpr uint32_t kLastShutdownAction = 2;  // power off

}  // namespace

/// A thread has a token of its own only while it acts for someone else, which no thread of the machine does.
KK_STATUS KK_CALL RtlAdjustPrivilege(uint32_t privilege, uint8_t enable, uint8_t currentThread, uint8_t* wasEnabled)
{
    Machine& machine = Machine::Current();
    CallRecord call = {.kind = CallKind::Privileged,
                       .name = "RtlAdjustPrivilege",
                       .object = currentThread != 0 ? "thread" : "process",
                       .code = privilege};
    call.options = enable;
    return PassGate(machine, std::move(call), [&](CallRecord& record) {
        if (currentThread != 0) {
            return kNoToken;
        }
        const std::optional<bool> before = machine.privileges.Adjust(privilege, enable != 0);
        if (!before) {
            return kPrivilegeNotHeld;
        }
        if (wasEnabled == nullptr) {
            machine.Report(record.name + ": no place for the state before");
            return kAccessViolation;
        }
        *wasEnabled = *before ? 1 : 0;
        return kSuccess;
    });
}

KK_STATUS KK_CALL NtShutdownSystem(uint32_t action)
{
    Machine& machine = Machine::Current();
    CallRecord call = {.kind = CallKind::Privileged, .name = "NtShutdownSystem", .object = {}, .code = action};
    return PassGate(machine, std::move(call), [&](CallRecord&) {
        if (action > kLastShutdownAction) {
            return kInvalidParameter;
        }
        if (!machine.privileges.IsEnabled(kShutdownPrivilege)) {
            return kPrivilegeNotHeld;
        }
        machine.shutdowns.push_back(action);
        return kSuccess;
    });
}
