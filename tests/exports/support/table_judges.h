#pragma once

#include <string>

#include "exports/support/disk_kind.h"
#include "machine/disk.h"

/// What other people's tools have against a disk's table, or nothing.
std::string ComplaintAboutTable(machine::Disk& disk, const DiskKind& kind);

/// The same of an NTFS file system of that length.
std::string ComplaintAboutNtfs(machine::Disk& disk, const Place& place);

/// The partitions that another program finds on a disk, a line for each: slot, first sector, sectors, and of a GPT the
/// type and the name, of an MBR the type.
std::string PartitionsForOthers(machine::Disk& disk, const DiskKind& kind);
