#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "machine/volume_view.h"

namespace machine {

enum class FileSystem { None, Ntfs, Fat12, Fat16, Fat32, Exfat };

/// Which file system a boot sector announces. Takes the first 512 bytes.
FileSystem RecogniseBootSector(std::span<const uint8_t> sector);

FileSystem RecogniseFileSystem(VolumeView& view);

/// The name that the system reports: "NTFS", "FAT", "FAT32", "exFAT", or "RAW".
std::u16string SystemNameOf(FileSystem fileSystem);

}  // namespace machine
