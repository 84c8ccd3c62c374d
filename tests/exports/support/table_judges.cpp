#include "exports/support/table_judges.h"

#include "support/shell.h"
#include "tests/machine/judges.h"

namespace {

/// What `fdisk` says when it is asked to verify.
void ExpectFdiskIsContent(const std::string& path, uint32_t sectorSize)
{
    const std::string text = Shell(R"(printf 'v\nq\n' | fdisk -b )" + std::to_string(sectorSize) + " " + path);
    EXPECT_THAT(text, ::testing::HasSubstr("No errors detected"));
    machine::ExpectWithout(text,
                           {"corrupt", "mismatch", "overlap", "too big", "Created a new", "differ", "Partition "});
}

/// With the smallest alignment: where partitions end is for whoever names their sizes.
void ExpectSgdiskIsContent(const std::string& path)
{
    const std::string text = Shell("sgdisk -a 1 -v " + path);
    EXPECT_THAT(text, ::testing::HasSubstr("No problems found"));
    machine::ExpectWithout(text,
                           {"Caution", "Warning", "Problem", "Invalid", "ERROR", "Creating new", "converting MBR"});
}

}  // namespace

void ExpectTableToolsAreContent(machine::Disk& disk, const DiskKind& kind)
{
    const machine::TemporaryFile file;
    disk.ExportFile(0, disk.Size(), file.Path());
    if (kind.sectorSize != 512) {
        ExpectFdiskIsContent(file.Path(), kind.sectorSize);
        return;
    }
    machine::ExpectSfdiskIsContent(file.Path());
    if (kind.table == TableKind::Gpt) {
        ExpectSgdiskIsContent(file.Path());
    }
}

void ExpectNtfsToolsAreContent(machine::Disk& disk, const Place& place)
{
    const machine::TemporaryFile file;
    disk.ExportFile(place.start, place.length, file.Path());
    machine::ExpectNtfsToolsAreContent(file.Path());
}
