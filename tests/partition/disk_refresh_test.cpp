#include "partition/disk_refresh.h"

#include "core/file_opener.h"
#include "disk/disk_layout.h"
#include "support/machine_test.h"

namespace kk {
namespace {

class RefreshDiskTest : public MachineTest {
protected:
    RefreshDiskTest()
    {
        disk_ = &machine.AddDisk(64 * kMiB).Gpt({.partitions = {{.start = 1 * kMiB, .length = 8 * kMiB}}});
        EXPECT_EQ(OpenDevice(u"\\??\\PhysicalDrive0", true, device_), KK_STATUS_SUCCESS);
        machine.journal.Clear();
    }

    size_t PartitionCount()
    {
        DiskLayout layout;
        EXPECT_EQ(ReadDiskLayout(0, layout), KK_STATUS_SUCCESS);
        return layout.partitions.Count();
    }

    machine::Disk* disk_;
    DevicePtr device_;
};

TEST_F(RefreshDiskTest, SendsOneRequestWithoutInputAndOutput)
{
    RefreshDiskProperties(*device_);

    ASSERT_EQ(machine.journal.Records().size(), 1u);
    const machine::CallRecord& request = machine.journal.Records().front();
    EXPECT_EQ(request.name, "NtDeviceIoControlFile");
    EXPECT_EQ(request.code, 0x70140u);
    EXPECT_TRUE(request.input.empty());
    EXPECT_EQ(request.length, 0u);
}

TEST_F(RefreshDiskTest, MakesTheDriverReadTheTableAgain)
{
    disk_->WriteBytes(0, std::vector<uint8_t>(34 * 512))
        .WriteBytes(64 * kMiB - 33 * 512, std::vector<uint8_t>(33 * 512));
    ASSERT_EQ(PartitionCount(), 1u);

    RefreshDiskProperties(*device_);
    EXPECT_EQ(PartitionCount(), 0u);
}

TEST_F(RefreshDiskTest, IgnoresAFailure)
{
    machine.faults.Fail({.code = 0x70140}, 1, 0xC0000185);

    RefreshDiskProperties(*device_);
    EXPECT_EQ(machine.journal.Count({.code = 0x70140}), 1u);
}

}  // namespace
}  // namespace kk
