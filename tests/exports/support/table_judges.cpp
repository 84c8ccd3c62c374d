#include "exports/support/table_judges.h"

#include "support/ntfs_judges.h"
#include "support/shell.h"
#include "support/table_judges.h"

std::string ComplaintAboutTable(machine::Disk& disk, const DiskKind& kind)
{
    const machine::TemporaryFile file;
    disk.ExportFile(0, disk.Size(), file.Path());
    return kind.table == TableKind::Gpt ? ComplaintAboutGpt(file.Path(), kind.sectorSize)
                                        : ComplaintAboutMbr(file.Path(), kind.sectorSize);
}

std::string ComplaintAboutNtfs(machine::Disk& disk, const Place& place)
{
    const machine::TemporaryFile file;
    disk.ExportFile(place.start, place.length, file.Path());
    return ComplaintAboutNtfs(file.Path());
}

std::string PartitionsForOthers(machine::Disk& disk, const DiskKind& kind)
{
    const machine::TemporaryFile file;
    disk.ExportFile(0, disk.Size(), file.Path());
    return PartitionsForOthers(file.Path(), kind.sectorSize);
}
