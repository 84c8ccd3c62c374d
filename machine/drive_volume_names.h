#pragma once

#include <string>
#include <string_view>

// Drives that show a folder of the host have no volume, but they are known by a volume's name all the same.

namespace machine {

/// "Volume{...}".
std::u16string VolumeNameOfDrive(char16_t letter);

/// The path with a drive letter in place of such a name at its front; any other path as it is.
std::u16string WithDriveLetter(std::u16string_view path);

}  // namespace machine
