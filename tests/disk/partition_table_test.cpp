// Layouts of disks with real partition tables.

#include <filesystem>
#include <fstream>
#include <string>

#include "disk/read_disk_layout.h"
#include "machine/text.h"
#include "support/shell.h"

namespace kk {
namespace {

class PartitionTableTest : public ReadDiskLayoutTest {
protected:
    /// Adds a disk of `sizeMiB` whose table a program of the host writes; `FILE` in the command is the disk.
    void AddDiskBy(const std::string& command, uint64_t sizeMiB = 64)
    {
        const std::filesystem::path file = folder_ / "disk";
        std::ofstream(file).close();
        std::filesystem::resize_file(file, sizeMiB * kMiB);
        std::string line = command;
        line.replace(line.find("FILE"), 4, file.string());
        Shell(line);
        machine.AddDiskFile(file.string());
    }

    std::u16string NameOf(size_t index) const
    {
        const std::u16string name(layout_.partitions[index].name, kPartitionNameUnits);
        return name.substr(0, name.find(u'\0'));
    }

    std::vector<uint8_t> MbrTypes() const
    {
        std::vector<uint8_t> types;
        for (const PartitionEntry& partition : layout_.partitions) {
            types.push_back(partition.mbrType);
        }
        return types;
    }

    TemporaryFolder folder_;
};

TEST_F(PartitionTableTest, AnEmptyDiskIsRawWithoutPartitions)
{
    AddDisk();

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.style, PartitionStyle::Raw);
    EXPECT_EQ(layout_.partitions.Count(), 0u);
    EXPECT_EQ(layout_.diskSize, 64 * kMiB);
}

TEST_F(PartitionTableTest, AGptOfAnotherProgramIsReadWhole)
{
    AddDiskBy("sgdisk -U 01234567-89AB-CDEF-0123-456789ABCDEF"
              " -n 1:2048:4095 -t 1:EF00 -u 1:11111111-2222-3333-4444-555555555555 -c 1:'EFI system partition'"
              " -n 2:8192:16383 -t 2:0700 -u 2:AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE"
              " -c 2:123456789012345678901234567890123456 FILE");
    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);

    EXPECT_EQ(layout_.style, PartitionStyle::Gpt);
    EXPECT_EQ(layout_.diskGuid, machine::ParseGuid("01234567-89ab-cdef-0123-456789abcdef"));
    ASSERT_EQ(layout_.partitions.Count(), 2u);
    const PartitionEntry& first = layout_.partitions[0];
    EXPECT_EQ(first.start, 1 * kMiB);
    EXPECT_EQ(first.length, 1 * kMiB);
    EXPECT_EQ(first.typeGuid, machine::kEfiSystemType);
    EXPECT_EQ(first.idGuid, machine::ParseGuid("11111111-2222-3333-4444-555555555555"));
    EXPECT_EQ(NameOf(0), u"EFI system partition");
    const PartitionEntry& second = layout_.partitions[1];
    EXPECT_EQ(second.start, 4 * kMiB);
    EXPECT_EQ(second.length, 4 * kMiB);
    EXPECT_EQ(second.typeGuid, machine::kBasicDataType);
    EXPECT_EQ(NameOf(1), u"123456789012345678901234567890123456");
}

TEST_F(PartitionTableTest, AnMbrOfAnotherProgramListsLogicalDrivesWithoutTheirContainer)
{
    AddDiskBy("printf 'label: dos\\n1: start=2048, size=4096, type=7, bootable\\n"
              "2: start=8192, size=65536, type=f\\n3: start=81920, size=2048, type=83\\n"
              "5: start=10240, size=2048, type=b\\n6: start=14336, size=2048, type=27\\n' | sfdisk -q FILE");
    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);

    EXPECT_EQ(layout_.style, PartitionStyle::Mbr);
    EXPECT_EQ(layout_.diskGuid, Guid{});
    EXPECT_EQ(MbrTypes(), (std::vector<uint8_t>{0x07, 0x83, 0x0B, 0x27}));
    ASSERT_EQ(Starts(), (std::vector<uint64_t>{1 * kMiB, 40 * kMiB, 5 * kMiB, 7 * kMiB}));
    EXPECT_EQ(layout_.partitions[0].length, 2 * kMiB);
    EXPECT_EQ(layout_.partitions[3].length, 1 * kMiB);
}

TEST_F(PartitionTableTest, BothKindsOfContainerAreLeftOut)
{
    for (const uint8_t container : {uint8_t{0x05}, uint8_t{0x0F}}) {
        machine.RemoveDisk(0);
        DiskLayout layout;
        AddDisk().Mbr({.partitions = {{.start = 1 * kMiB, .length = 4 * kMiB}},
                       .logicals = {{.start = 10 * kMiB, .length = 4 * kMiB}, {.start = 20 * kMiB, .length = 4 * kMiB}},
                       .containerType = container});

        EXPECT_EQ(ReadDiskLayout(0, layout), KK_STATUS_SUCCESS);
        EXPECT_EQ(layout.partitions.Count(), 3u);
        EXPECT_EQ(layout.partitions[2].start, 20 * kMiB);
    }
}

TEST_F(PartitionTableTest, AContainerOfAnotherSystemIsAPartition)
{
    AddDisk().Mbr({.partitions = {{.start = 1 * kMiB, .length = 4 * kMiB, .type = 0x85}}});

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(MbrTypes(), (std::vector<uint8_t>{0x85}));
}

TEST_F(PartitionTableTest, ASuperFloppyIsOnePartitionAtOffsetZero)
{
    AddDiskBy("mkfs.vfat FILE");

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.style, PartitionStyle::Mbr);
    EXPECT_EQ(Starts(), (std::vector<uint64_t>{0}));
}

TEST_F(PartitionTableTest, NumbersAreTheSystemsAndNotThoseOfSlots)
{
    AddDisk()
        .Gpt({.partitions = {{.start = 1 * kMiB, .length = 1 * kMiB},
                             {.start = 4 * kMiB, .length = 1 * kMiB, .slot = 40}}})
        .SetPartitionNumber(4 * kMiB, 7);

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    ASSERT_EQ(layout_.partitions.Count(), 2u);
    EXPECT_EQ(layout_.partitions[0].number, 1u);
    EXPECT_EQ(layout_.partitions[1].number, 7u);
}

machine::GptTable FullTable(uint32_t entries)
{
    machine::GptTable table = {.entryCount = entries};
    for (uint64_t i = 0; i < entries; ++i) {
        table.partitions.push_back({.start = (1 << 20) + i * 65536, .length = 65536});
    }
    return table;
}

TEST_F(PartitionTableTest, AFullGptOfTheUsualSizeIsReadAtOnce)
{
    AddDisk().Gpt(FullTable(128));

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.partitions.Count(), 128u);
    EXPECT_EQ(LayoutLengths(), (std::vector<uint64_t>{18624}));
}

TEST_F(PartitionTableTest, ALargerGptIsReadWithADoubledBuffer)
{
    AddDisk().Gpt(FullTable(200));

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.partitions.Count(), 200u);
    EXPECT_EQ(layout_.partitions[199].start, 1 * kMiB + 199 * 64 * kKiB);
    EXPECT_EQ(LayoutLengths(), (std::vector<uint64_t>{18624, 37248}));
}

TEST_F(PartitionTableTest, SectorsOf4096BytesMakeNoDifference)
{
    machine.AddDisk(64 * kMiB, {.sectorSize = 4096}).Gpt({.partitions = {{.start = 1 * kMiB, .length = 3 * kMiB}}});

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.sectorSize, 4096u);
    EXPECT_EQ(Starts(), (std::vector<uint64_t>{1 * kMiB}));
    EXPECT_EQ(layout_.partitions[0].length, 3 * kMiB);
}

}  // namespace
}  // namespace kk
