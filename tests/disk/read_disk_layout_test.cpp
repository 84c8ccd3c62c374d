#include "disk/read_disk_layout.h"

#include <string>

namespace kk {
namespace {

const machine::CallPattern kAllocations = {.kind = machine::CallKind::Allocate};

TEST(DiskLayoutTest, BeginsAsARawDiskOfUnknownSizeWithUsualSectors)
{
    const DiskLayout layout;

    EXPECT_EQ(layout.sectorSize, 512u);
    EXPECT_EQ(layout.diskSize, 0u);
    EXPECT_EQ(layout.style, PartitionStyle::Raw);
    EXPECT_EQ(layout.diskGuid, Guid{});
    EXPECT_EQ(layout.partitions.Count(), 0u);
}

TEST(PartitionStyleTest, HasTheNumbersThatTheExportsReport)
{
    EXPECT_EQ(static_cast<uint32_t>(PartitionStyle::Raw), 0u);
    EXPECT_EQ(static_cast<uint32_t>(PartitionStyle::Mbr), 1u);
    EXPECT_EQ(static_cast<uint32_t>(PartitionStyle::Gpt), 2u);
}

std::u16string DrivePath(uint32_t disk, size_t capacity)
{
    std::u16string path(capacity + 1, u'#');
    FormatPhysicalDrivePath(disk, path.data(), capacity);
    EXPECT_EQ(path[capacity], u'#');
    return path.substr(0, path.find(u'\0'));
}

TEST(FormatPhysicalDrivePathTest, EndsWithTheNumber)
{
    EXPECT_EQ(DrivePath(0, 64), u"\\??\\PhysicalDrive0");
    EXPECT_EQ(DrivePath(31, 64), u"\\??\\PhysicalDrive31");
    EXPECT_EQ(DrivePath(4294967295, 64), u"\\??\\PhysicalDrive4294967295");
}

TEST(FormatPhysicalDrivePathTest, IsCutToTheCapacity)
{
    EXPECT_EQ(DrivePath(123, 21), u"\\??\\PhysicalDrive123");
    EXPECT_EQ(DrivePath(123, 20), u"\\??\\PhysicalDrive12");
    EXPECT_EQ(DrivePath(123, 18), u"\\??\\PhysicalDrive");
    EXPECT_EQ(DrivePath(123, 5), u"\\??\\");
    EXPECT_EQ(DrivePath(123, 1), u"");
    EXPECT_EQ(DrivePath(123, 0), u"#");
}

TEST_F(ReadDiskLayoutTest, OpensTheNumberedDriveForReadingAndClosesIt)
{
    machine.AddDisk(64 * kMiB, {.number = 12});

    EXPECT_EQ(ReadDiskLayout(12, layout_), KK_STATUS_SUCCESS);
    const auto opens = machine.journal.FindAll({.kind = machine::CallKind::CreateFile});
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0].object, "\\??\\PhysicalDrive12");
    EXPECT_EQ(opens[0].access, 0x120089u);
    EXPECT_EQ(opens[0].options, 0x860u);
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Close}), 1u);
}

TEST_F(ReadDiskLayoutTest, ReportsTheStatusOfAFailingOpenAndLeavesTheLayout)
{
    layout_.sectorSize = 4096;
    layout_.diskSize = 77;
    layout_.style = PartitionStyle::Gpt;

    EXPECT_EQ(Read(), Status(0xC0000034));
    EXPECT_EQ(layout_.sectorSize, 4096u);
    EXPECT_EQ(layout_.diskSize, 77u);
    EXPECT_EQ(layout_.style, PartitionStyle::Gpt);
    EXPECT_EQ(machine.journal.Records().size(), 1u);
}

TEST_F(ReadDiskLayoutTest, ReportsThatThereIsNoMemoryForTheDevice)
{
    AddDisk();
    machine.faults.Fail(kAllocations, 1, 0);

    EXPECT_EQ(Read(), Status(0xC0000017));
}

TEST_F(ReadDiskLayoutTest, AsksForGeometryThenForTheLayout)
{
    AddDisk();
    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);

    const auto requests = machine.journal.FindAll({.kind = machine::CallKind::DeviceControl});
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].code, 0x700A0u);
    EXPECT_EQ(requests[0].length, 40u);
    EXPECT_EQ(requests[1].code, 0x70050u);
    EXPECT_EQ(requests[1].length, 18624u);
    EXPECT_TRUE(requests[0].input.empty());
    EXPECT_TRUE(requests[1].input.empty());
}

TEST_F(ReadDiskLayoutTest, TellsSizeAndSectorSize)
{
    machine.AddDisk(5 * kGiB, {.sectorSize = 4096});

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.diskSize, 5 * kGiB);
    EXPECT_EQ(layout_.sectorSize, 4096u);
}

TEST_F(ReadDiskLayoutTest, GoesOnWithoutGeometry)
{
    AddDisk().Gpt({.partitions = {{.start = 1 * kMiB, .length = 2 * kMiB}}}).behaviour.geometryFails = true;

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.diskSize, 0u);
    EXPECT_EQ(layout_.sectorSize, 512u);
    EXPECT_EQ(layout_.partitions.Count(), 1u);
}

TEST_F(ReadDiskLayoutTest, WithoutGeometryKeepsWhatTheCallerPutIn)
{
    AddDisk().behaviour.geometryFails = true;
    layout_.sectorSize = 2048;
    layout_.diskSize = 99;

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.sectorSize, 2048u);
    EXPECT_EQ(layout_.diskSize, 99u);
}

TEST_F(ReadDiskLayoutTest, TakesNoGeometryFromAWarning)
{
    AddDisk();
    OnGeometry([](const machine::ControlRequest&) {
        return machine::ControlAnswer{.status = machine::kBufferOverflow, .output = std::vector<uint8_t>(40, 0x11)};
    });

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.diskSize, 0u);
    EXPECT_EQ(layout_.sectorSize, 512u);
}

TEST_F(ReadDiskLayoutTest, TakesZeroBytesPerSectorAs512)
{
    AddDisk().behaviour.reportsZeroBytesPerSector = true;
    layout_.sectorSize = 4096;

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.sectorSize, 512u);
    EXPECT_EQ(layout_.diskSize, 64 * kMiB);
}

TEST_F(ReadDiskLayoutTest, TellsStrangeSectorSizesAsReported)
{
    AddDisk();
    for (const uint32_t size : {1u, 7u, 0xFFFFFFFFu}) {
        DiskGeometryEx geometry = {};
        geometry.bytesPerSector = size;
        OnGeometry([=](const machine::ControlRequest&) {
            return machine::ControlAnswer{.output = machine::BytesOf(geometry)};
        });
        EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
        EXPECT_EQ(layout_.sectorSize, size);
    }
}

TEST_F(ReadDiskLayoutTest, WhatAShortGeometryLacksIsZero)
{
    AddDisk();
    DiskGeometryEx geometry = {};
    geometry.bytesPerSector = 4096;
    geometry.diskSize = 1 << 30;
    std::vector<uint8_t> bytes = machine::BytesOf(geometry);
    bytes.resize(24);
    OnGeometry([&](const machine::ControlRequest&) { return machine::ControlAnswer{.output = bytes}; });

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.sectorSize, 4096u);
    EXPECT_EQ(layout_.diskSize, 0u);
}

}  // namespace
}  // namespace kk
