#include "disk/find_volume.h"

namespace kk {
namespace {

class OpenVolumeTest : public FindVolumeTest {
protected:
    OpenVolumeTest() { AddDiskWithThreeVolumes(); }

    DevicePtr volume_;
};

TEST_F(OpenVolumeTest, OpensTheVolumeThatBeginsThereForWriting)
{
    EXPECT_TRUE(OpenVolumeForPartition(0, 10 * kMiB, volume_));

    const auto opens = Opens();
    ASSERT_EQ(opens.size(), 3u);
    // Looked at for reading, the right one last; then opened again.
    EXPECT_EQ(opens[0].object, "\\Device\\HarddiskVolume1");
    EXPECT_EQ(opens[1].object, "\\Device\\HarddiskVolume2");
    EXPECT_EQ(opens[1].access, 0x120089u);
    EXPECT_EQ(opens[2].object, "\\Device\\HarddiskVolume2");
    EXPECT_EQ(opens[2].access, 0x12019Fu);
    const uint8_t sector[512] = {0x5A};
    EXPECT_EQ(volume_->WriteAt(0, sector, sizeof(sector)), KK_STATUS_SUCCESS);
    EXPECT_EQ(machine.FindDisk(0)->ReadBytes(10 * kMiB, 1), std::vector<uint8_t>{0x5A});
}

TEST_F(OpenVolumeTest, TheVolumeWasClosedBeforeItIsOpenedForWriting)
{
    EXPECT_TRUE(OpenVolumeForPartition(0, 1 * kMiB, volume_));

    ASSERT_EQ(Opens().size(), 2u);
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Close}), 1u);
    EXPECT_LT(machine.journal.First({.kind = machine::CallKind::Close})->index, Opens().back().index);
}

TEST_F(OpenVolumeTest, APartitionWithoutAVolumeHasNoneToOpen)
{
    machine.HideVolume(*machine.FindVolume(0, 10 * kMiB));

    EXPECT_FALSE(OpenVolumeForPartition(0, 10 * kMiB, volume_));
    EXPECT_FALSE(OpenVolumeForPartition(0, 1 * kMiB + 512, volume_));
    EXPECT_FALSE(OpenVolumeForPartition(1, 1 * kMiB, volume_));
    EXPECT_FALSE(volume_);
    EXPECT_EQ(machine.journal.Count({.name = "NtCreateFile"}), 3u * 127);
}

TEST_F(OpenVolumeTest, AVolumeThatDoesNotOpenForWritingIsNotOpened)
{
    machine.faults.Fail({.kind = machine::CallKind::CreateFile}, 2, 0xC0000022);

    EXPECT_FALSE(OpenVolumeForPartition(0, 1 * kMiB, volume_));
    EXPECT_FALSE(volume_);
    EXPECT_EQ(Opens().size(), 2u);
}

TEST_F(OpenVolumeTest, WithoutMemoryItIsNotOpened)
{
    machine.faults.Fail({.kind = machine::CallKind::Allocate}, 2, 0);

    EXPECT_FALSE(OpenVolumeForPartition(0, 1 * kMiB, volume_));
    EXPECT_FALSE(volume_);
}

}  // namespace
}  // namespace kk
