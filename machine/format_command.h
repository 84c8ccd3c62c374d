#pragma once

#include <span>
#include <string>

#include "machine/processes.h"

namespace machine {

// What the format command ends with.
inline constexpr uint32_t kFormatDone = 0;
inline constexpr uint32_t kFormatBadArguments = 1;
inline constexpr uint32_t kFormatFailed = 4;

/// The command `format X: [/FS:name] [/Q] [/Y] [/V:label]`, with switches in any case and order; a switch that comes
/// again replaces the one before. Anything else on the line ends it at once with kFormatBadArguments, and a letter
/// without a volume, or a file system that it does not make, with kFormatFailed. Without /FS the volume keeps its file
/// system, and becomes NTFS when it has none. Without /Y it waits for an answer that never comes.
///
/// The work is done at the end of its duration. Without /Q every byte of the partition that is not zero becomes zero
/// first. It ends with kFormatFailed when
/// - the volume has gone meanwhile, its medium cannot be written, or it spans several partitions;
/// - somebody has locked the volume, or the system itself uses it; other handles are dismounted;
/// - the label is too long (32 characters for NTFS, 11 for the others) or, for FAT, has a character other than those
///   of short file names, which become upper case, and blanks;
/// - the partition is too small or too large: for FAT32, below 65,536 sectors or above 32 GiB; for the others, as the
///   host's tools see it. exFAT is made on sectors of 512 bytes alone, which is all that the host's tool can do.
ProcessCourse RunFormatCommand(Machine& machine, std::span<const std::u16string> arguments);

}  // namespace machine
