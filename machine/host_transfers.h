#pragma once

#include <cstdint>
#include <span>
#include <sys/types.h>

// Reads and writes of host files that go on after a short transfer.

namespace machine {

/// The bytes that were read, fewer than asked for at the end of the file alone; -1, and errno, on failure.
ssize_t ReadAt(int descriptor, uint64_t offset, std::span<uint8_t> into);

/// False, and errno, when not all could be written.
bool WriteAt(int descriptor, uint64_t offset, std::span<const uint8_t> from);

}  // namespace machine
