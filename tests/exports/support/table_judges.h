#pragma once

#include <string>

#include "exports/support/disk_kind.h"
#include "machine/disk.h"

/// What other people's tools have against a disk's table, or nothing.
std::string ComplaintAboutTable(machine::Disk& disk, const DiskKind& kind);

/// The same of an NTFS file system of that length.
std::string ComplaintAboutNtfs(machine::Disk& disk, const Place& place);
