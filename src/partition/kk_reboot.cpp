#include "core/nt.h"

KK_STATUS KK_CALL KkReboot()
{
    // For the process, not the thread. Without the privilege the system refuses, and its own status says so.
    uint8_t wasEnabled = 0;
    (void)RtlAdjustPrivilege(kk::kSeShutdownPrivilege, 1, 0, &wasEnabled);
    return NtShutdownSystem(kk::kShutdownReboot);
}
