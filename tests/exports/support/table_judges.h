#pragma once

#include "exports/support/disk_kind.h"
#include "machine/disk.h"

/// Other people's tools find nothing to complain of in a disk's table: `sgdisk` and `sfdisk`, which take sectors of 512
/// bytes, or `fdisk`, which takes any. Both copies of a GPT are looked at.
void ExpectTableToolsAreContent(machine::Disk& disk, const DiskKind& kind);

/// The same of a clean NTFS file system of that length, its last sector included.
void ExpectNtfsToolsAreContent(machine::Disk& disk, const Place& place);
