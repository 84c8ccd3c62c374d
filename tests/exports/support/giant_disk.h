#pragma once

#include <cstdint>

// The largest that tests of scale use. None of it takes room that nothing is written to.

inline constexpr uint64_t kTiB = uint64_t{1} << 40;
inline constexpr uint64_t kGiantDisk = 64 * kTiB;
inline constexpr uint32_t kGiantSector = 4096;

/// The most that a call may hold of the heap at once beside what it must: lists of a few thousand records, tables of a
/// few hundred KiB, and what grows by doubling while both old and new are held.
inline constexpr uint64_t kListsBytes = uint64_t{1} << 20;
inline constexpr uint64_t kCopyBufferBytes = uint64_t{8} << 20;
