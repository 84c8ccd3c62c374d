#include <gmock/gmock.h>

#include "fake_kit.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// How a user's names of disks and volumes reach the library.
class TargetsTest : public CommandLineTest {
protected:
    TargetsTest()
    {
        library.imageInfo.logicalSectorSize = 512;
        library.imageInfo.partitionStyle = KK_PARTITION_STYLE_GPT;
        library.imagePartitions = {ImagePartitionAt(1, 1 << 20, 10 << 20)};
        library.partitions = {PartitionAt(1 << 20, 40 << 20), PartitionAt(64 << 20, 8 << 20)};
        SetText(library.partitions[0].deviceName, u"\\Device\\HarddiskVolume17");
    }

    std::string DiskPathOf(const std::string& disk)
    {
        library.edits.clear();
        EXPECT_EQ(Run({"restore", "x", disk}), 0) << err;
        return library.edits.at(0);
    }

    std::string VolumePathOf(const std::string& volume)
    {
        library.edits.clear();
        EXPECT_EQ(Run({"clone", "source", volume}), 0) << err;
        return library.edits.at(0);
    }
};

TEST_F(TargetsTest, ADiskIsANumberADeviceOrAFile)
{
    EXPECT_THAT(DiskPathOf("0"), HasSubstr("'\\\\.\\PhysicalDrive0'"));
    EXPECT_THAT(DiskPathOf("4294967295"), HasSubstr("'\\\\.\\PhysicalDrive4294967295'"));
    EXPECT_THAT(DiskPathOf("\\\\.\\PhysicalDrive3"), HasSubstr("'\\\\.\\PhysicalDrive3'"));
    EXPECT_THAT(DiskPathOf("4294967296"), HasSubstr("'Z:\\4294967296'"));
    EXPECT_THAT(DiskPathOf("./0"), HasSubstr("'Z:\\./0'"));
    EXPECT_THAT(DiskPathOf("0.raw"), HasSubstr("'Z:\\0.raw'"));
}

TEST_F(TargetsTest, AVolumeIsALetterADeviceOrAFile)
{
    EXPECT_THAT(VolumePathOf("c:"), HasSubstr("'\\\\.\\c:'"));
    EXPECT_THAT(VolumePathOf("Z:\\"), HasSubstr("'\\\\.\\Z:'"));
    EXPECT_THAT(VolumePathOf("\\\\.\\D:\\"), HasSubstr("'\\\\.\\D:'"));
    EXPECT_THAT(VolumePathOf("\\\\?\\Volume{1}\\"), HasSubstr("'\\\\?\\Volume{1}'"));
    EXPECT_THAT(VolumePathOf("\\??\\Volume{1}"), HasSubstr("'\\??\\Volume{1}'"));
    EXPECT_THAT(VolumePathOf("\\Device\\HarddiskVolume4"), HasSubstr("'\\Device\\HarddiskVolume4'"));
    EXPECT_THAT(VolumePathOf("D:x"), HasSubstr("'Z:\\D:x'"));
    EXPECT_THAT(VolumePathOf("0:"), HasSubstr("'Z:\\0:'"));
    EXPECT_THAT(VolumePathOf("a@b"), HasSubstr("'Z:\\a@b'"));
}

TEST_F(TargetsTest, AVolumeIsThatOfAPartitionToo)
{
    EXPECT_THAT(VolumePathOf("2@1M"), HasSubstr("'\\Device\\HarddiskVolume17'"));
    EXPECT_THAT(library.listedDisks, testing::Each(2u));
}

TEST_F(TargetsTest, APartitionWithoutAVolumeIsRefused)
{
    library.edits.clear();
    EXPECT_EQ(Run({"clone", "source", "2@64M"}), 2);
    EXPECT_EQ(err, "kkctl: there is no volume on the partition at 67108864 of disk 2\n");
    EXPECT_EQ(Run({"clone", "2@3M", "D:"}), 2);
    EXPECT_EQ(err, "kkctl: there is no volume on the partition at 3145728 of disk 2\n");
    library.partitionsStatus = static_cast<KK_STATUS>(0xC0000034);
    EXPECT_EQ(Run({"clone", "9@1M", "D:"}), 1);
    EXPECT_THAT(err, testing::StartsWith("kkctl: listing the partitions of disk 9: 0xC0000034"));

    EXPECT_THAT(library.edits, IsEmpty());
}

TEST_F(TargetsTest, NamesThatAreNotUtf8AreRefused)
{
    EXPECT_EQ(Run({"clone", "source", "\\\\.\\\xFF"}), 2);

    EXPECT_THAT(library.edits, IsEmpty());
}
