#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include <kestrelkit/kestrelkit_types.hpp>

namespace kkctl {

/// A finished backup and where it went.
struct BackupReport {
    uint32_t disk = 0;
    std::string image;     ///< the path as the user gave it
    std::string manifest;  ///< the file that the library writes beside the image
    kestrelkit::Backup result;
};

void PrintBackupJson(std::ostream& out, const BackupReport& report);

void PrintBackupText(std::ostream& out, const BackupReport& report);

}  // namespace kkctl
