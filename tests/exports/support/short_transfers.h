#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "machine/machine.h"

/// An operation that can be made again and again.
struct Repeatable {
    std::function<void()> prepare;                 // puts everything back to where it was
    std::function<int32_t()> run;                  // answers the status
    std::function<std::vector<uint8_t>()> result;  // all that it may have changed
    uint32_t sectorSize = 512;
};

/// Cuts reads and writes of an operation short, one at a time, to each class of lengths: nothing, a byte, less than a
/// sector, a sector, whole sectors but not all, all but a byte. Of files, and of whole sectors of a device, the rest
/// follows, and nothing of it shows. A device refuses a rest that begins inside a sector, and a transfer of nothing has
/// failed: the operation then ends as it does when the call fails. Returns how many transfers were cut short.
uint64_t SweepShortTransfers(machine::Machine& machine, const Repeatable& operation);
