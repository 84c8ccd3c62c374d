#pragma once

#include <span>

#include "machine/machine.h"

// What the calls that take handles have in common.

namespace machine {

/// The I/O status block of a call. Errors leave it as it was; the machine insists that it was zero before, since a
/// caller that reads it after an error would otherwise see what the call before left there.
class StatusBlock {
public:
    StatusBlock(const Machine& machine, const CallRecord& record, kk::IoStatusBlock* block);

    /// Stores a success or a warning; gives the status back.
    Status Finish(CallRecord& record, Status status, uint64_t information);

private:
    kk::IoStatusBlock* block_;
};

/// The open file behind a handle. Null, and a report, when there is none.
OpenFile* RequireFile(Machine& machine, const CallRecord& record, kk::NtHandle handle);

/// False, and a report, when there is no such handle.
bool CloseOrReport(Machine& machine, const CallRecord& record, kk::NtHandle handle);

}  // namespace machine
