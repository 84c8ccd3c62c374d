#include "core/status.h"
#include "disk/disk_layout.h"
#include "support/machine_test.h"

namespace kk {
namespace {

class OpenPhysicalDriveTest : public MachineTest {
protected:
    OpenPhysicalDriveTest() { machine.AddDisk(1 * kMiB, {.number = 12}); }

    DevicePtr drive_;
};

TEST_F(OpenPhysicalDriveTest, OpensTheNumberedDriveForReading)
{
    EXPECT_EQ(OpenPhysicalDrive(12, false, drive_), KK_STATUS_SUCCESS);

    const machine::CallRecord* const open = machine.journal.Last({.kind = machine::CallKind::CreateFile});
    EXPECT_EQ(open->object, "\\??\\PhysicalDrive12");
    EXPECT_EQ(open->access, 0x120089u);
    uint8_t sector[512];
    EXPECT_EQ(drive_->ReadAt(0, sector, sizeof(sector)), KK_STATUS_SUCCESS);
    EXPECT_EQ(drive_->WriteAt(0, sector, sizeof(sector)), Status(0xC0000022));
}

TEST_F(OpenPhysicalDriveTest, OpensItForWritingToo)
{
    EXPECT_EQ(OpenPhysicalDrive(12, true, drive_), KK_STATUS_SUCCESS);

    EXPECT_EQ(machine.journal.Last({.kind = machine::CallKind::CreateFile})->access, 0x12019Fu);
    const uint8_t sector[512] = {1};
    EXPECT_EQ(drive_->WriteAt(0, sector, sizeof(sector)), KK_STATUS_SUCCESS);
    EXPECT_EQ(machine.FindDisk(12)->ReadBytes(0, 1), std::vector<uint8_t>{1});
}

TEST_F(OpenPhysicalDriveTest, ReportsWhyADriveDoesNotOpen)
{
    EXPECT_EQ(OpenPhysicalDrive(13, true, drive_), Status(0xC0000034));
    EXPECT_FALSE(drive_);
    EXPECT_EQ(machine.journal.Last({.kind = machine::CallKind::CreateFile})->object, "\\??\\PhysicalDrive13");

    machine.faults.Fail({.kind = machine::CallKind::CreateFile}, 1, 0xC0000022);
    EXPECT_EQ(OpenPhysicalDrive(12, true, drive_), Status(0xC0000022));
    machine.faults.Fail({.kind = machine::CallKind::Allocate}, 1, 0);
    EXPECT_EQ(OpenPhysicalDrive(12, true, drive_), Status(0xC0000017));
    EXPECT_FALSE(drive_);
}

TEST_F(OpenPhysicalDriveTest, NumbersAreUnsigned)
{
    EXPECT_TRUE(Failed(OpenPhysicalDrive(0xFFFFFFFF, false, drive_)));
    EXPECT_EQ(machine.journal.Last({.kind = machine::CallKind::CreateFile})->object, "\\??\\PhysicalDrive4294967295");
}

}  // namespace
}  // namespace kk
