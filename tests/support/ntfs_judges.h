#pragma once

#include <string>

/// What programs that are not ours have against an NTFS volume in a file: nothing when it is clean and as long as the
/// file, the copy of the boot sector included; else the words of the first that complains.
std::string ComplaintAboutNtfs(const std::string& file);
