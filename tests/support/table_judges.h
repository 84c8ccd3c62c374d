#pragma once

#include <cstdint>
#include <string>

/// What programs that are not ours have against the GPT of a disk in a file: the words of the first that complains, or
/// nothing. Exit codes are not trusted where the text says more: checkers exit with 0 for most damage. Disks of 512 and
/// of 4096 bytes a sector are judged.
std::string ComplaintAboutGpt(const std::string& file, uint32_t sectorSize = 512);

/// The same for an MBR.
std::string ComplaintAboutMbr(const std::string& file, uint32_t sectorSize = 512);

/// The partitions that another program finds on a disk, a line for each: slot, first sector, sectors, and of a GPT the
/// type and the name, of an MBR the type; sectors are the disk's.
std::string PartitionsForOthers(const std::string& file, uint32_t sectorSize = 512);
