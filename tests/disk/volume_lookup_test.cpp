#include "disk/volume_lookup.h"

#include <string>

#include "disk/find_volume.h"

namespace kk {
namespace {

TEST_F(FindVolumeTest, FindsTheVolumeThatBeginsThere)
{
    AddDiskWithThreeVolumes();

    EXPECT_TRUE(Find(0, 10 * kMiB));
    EXPECT_EQ(Path(), u"\\Device\\HarddiskVolume2");
    EXPECT_TRUE(Find(0, 20 * kMiB));
    EXPECT_EQ(Path(), u"\\Device\\HarddiskVolume3");
}

TEST_F(FindVolumeTest, TheStartMustBeExact)
{
    AddDiskWithThreeVolumes();

    EXPECT_FALSE(Find(0, 10 * kMiB - 1));
    EXPECT_FALSE(Find(0, 10 * kMiB + 1));
    EXPECT_FALSE(Find(0, 10 * kMiB + (uint64_t{1} << 32)));
    EXPECT_FALSE(Find(0, 0));
}

TEST_F(FindVolumeTest, TheDiskMustBeTheSame)
{
    AddDiskWithThreeVolumes();
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{.start = 10 * kMiB, .length = 8 * kMiB}}});

    EXPECT_TRUE(Find(1, 10 * kMiB));
    EXPECT_EQ(Path(), u"\\Device\\HarddiskVolume4");
    EXPECT_FALSE(Find(2, 10 * kMiB));
}

TEST_F(FindVolumeTest, WithoutAMatchTriesAllVolumesAndTouchesNothing)
{
    AddDiskWithThreeVolumes();

    EXPECT_FALSE(Find(0, 5 * kMiB));
    ExpectUntouched();
    const auto opens = Opens();
    ASSERT_EQ(opens.size(), 127u);
    for (size_t i = 0; i < opens.size(); ++i) {
        EXPECT_EQ(opens[i].object, "\\Device\\HarddiskVolume" + std::to_string(i + 1));
    }
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Close}), 3u);
    EXPECT_EQ(machine.journal.Count({.code = kFsctlGetNtfsVolumeData}), 0u);
}

TEST_F(FindVolumeTest, APartitionWithoutAVolumeHasNone)
{
    AddDiskWithThreeVolumes();
    machine.HideVolume(*machine.FindVolume(0, 10 * kMiB));

    EXPECT_FALSE(Find(0, 10 * kMiB));
    ExpectUntouched();
}

TEST_F(FindVolumeTest, AReservedPartitionHasNone)
{
    machine.AddDisk(64 * kMiB).Gpt(
        {.partitions = {{.start = 1 * kMiB, .length = 8 * kMiB, .type = machine::kReservedType}}});

    EXPECT_FALSE(Find(0, 1 * kMiB));
}

TEST_F(FindVolumeTest, Volume127IsFoundAndVolume128IsNot)
{
    AddDiskWithThreeVolumes();
    machine.SetVolumeNumber(*machine.FindVolume(0, 10 * kMiB), 127);
    machine.SetVolumeNumber(*machine.FindVolume(0, 20 * kMiB), 128);

    EXPECT_TRUE(Find(0, 10 * kMiB));
    EXPECT_EQ(Path(), u"\\Device\\HarddiskVolume127");
    EXPECT_FALSE(Find(0, 20 * kMiB));
    EXPECT_EQ(Opens().back().object, "\\Device\\HarddiskVolume127");
}

TEST_F(FindVolumeTest, TheFirstMatchInTheOrderOfNumbersWins)
{
    AddDiskWithThreeVolumes();
    const auto disk = machine.ShareDisk(0);
    machine.FindVolume(0, 20 * kMiB)->AddExtent({disk, 40 * kMiB, 1 * kMiB});
    machine.FindVolume(0, 10 * kMiB)->AddExtent({disk, 40 * kMiB, 2 * kMiB});

    EXPECT_TRUE(Find(0, 40 * kMiB));
    EXPECT_EQ(Path(), u"\\Device\\HarddiskVolume2");
    EXPECT_EQ(Opens().size(), 2u);
}

TEST_F(FindVolumeTest, ASpannedVolumeIsFoundByAnyOfItsExtents)
{
    AddDiskWithThreeVolumes();
    machine.AddDisk(64 * kMiB);
    machine.FindVolume(0, 20 * kMiB)->AddExtent({machine.ShareDisk(1), 33 * kMiB, 1 * kMiB});

    EXPECT_TRUE(Find(1, 33 * kMiB));
    EXPECT_EQ(Path(), u"\\Device\\HarddiskVolume3");
    EXPECT_TRUE(Find(0, 20 * kMiB));
    EXPECT_FALSE(Find(0, 33 * kMiB));
}

TEST_F(FindVolumeTest, TwentyOneExtentsAreLookedAt)
{
    AddDiskWithThreeVolumes();
    for (uint64_t i = 1; i <= 20; ++i) {
        machine.FindVolume(0, 1 * kMiB)->AddExtent({machine.ShareDisk(0), (30 + i) * kMiB, 1 * kMiB});
    }

    EXPECT_TRUE(Find(0, 50 * kMiB));
    EXPECT_EQ(Path(), u"\\Device\\HarddiskVolume1");
}

TEST_F(FindVolumeTest, AVolumeWithMoreExtentsThanFitIsSkipped)
{
    AddDiskWithThreeVolumes();
    for (uint64_t i = 1; i <= 21; ++i) {
        machine.FindVolume(0, 1 * kMiB)->AddExtent({machine.ShareDisk(0), (30 + i) * kMiB, 1 * kMiB});
    }

    EXPECT_FALSE(Find(0, 1 * kMiB));
}

TEST_F(FindVolumeTest, AnNtfsVolumeTellsItsClusterSize)
{
    AddDiskWithThreeVolumes();
    machine.FindDisk(0)->Format(10 * kMiB, 8 * kMiB, machine::FileSystem::Ntfs, {.clusterSize = 2048});

    EXPECT_TRUE(Find(0, 10 * kMiB));
    EXPECT_EQ(clusterSize_, 2048u);
}

TEST_F(FindVolumeTest, OtherVolumesHaveClusterSizeZero)
{
    AddDiskWithThreeVolumes();
    machine.FindDisk(0)->Format(10 * kMiB, 8 * kMiB, machine::FileSystem::Fat12);

    EXPECT_TRUE(Find(0, 10 * kMiB));
    EXPECT_EQ(clusterSize_, 0u);
    EXPECT_TRUE(Find(0, 20 * kMiB));
    EXPECT_EQ(clusterSize_, 0u);
}

TEST_F(FindVolumeTest, TheClusterSizeOfAWarningIsNotTaken)
{
    AddDiskWithThreeVolumes();
    machine.FindVolume(0, 1 * kMiB)->SetNtfsData([](const machine::ControlRequest&) {
        return machine::ControlAnswer{.status = machine::kBufferOverflow, .output = std::vector<uint8_t>(96, 0x44)};
    });

    EXPECT_TRUE(Find(0, 1 * kMiB));
    EXPECT_EQ(clusterSize_, 0u);
}

TEST_F(FindVolumeTest, AClusterSizeThatIsNotToldIsZero)
{
    AddDiskWithThreeVolumes();
    machine.FindVolume(0, 1 * kMiB)->SetNtfsData([](const machine::ControlRequest&) {
        return machine::ControlAnswer{.output = std::vector<uint8_t>(44, 0x44)};
    });

    EXPECT_TRUE(Find(0, 1 * kMiB));
    EXPECT_EQ(clusterSize_, 0u);
}

TEST_F(FindVolumeTest, TheClusterSizeIsOptional)
{
    AddDiskWithThreeVolumes();
    char16_t path[64];

    EXPECT_TRUE(FindVolumeForPartition(0, 1 * kMiB, path, 64, nullptr));
    EXPECT_EQ(std::u16string(path), u"\\Device\\HarddiskVolume1");
    EXPECT_EQ(machine.journal.Count({.code = kFsctlGetNtfsVolumeData}), 1u);
}

TEST_F(FindVolumeTest, ThePathIsCutToTheCapacity)
{
    AddDiskWithThreeVolumes();
    std::u16string path(30, u'#');
    const auto find = [&](size_t capacity) {
        path.assign(30, u'#');
        EXPECT_TRUE(FindVolumeForPartition(0, 1 * kMiB, path.data(), capacity, nullptr));
        EXPECT_EQ(path[capacity], u'#');
        return path.substr(0, path.find(u'\0'));
    };

    EXPECT_EQ(find(24), u"\\Device\\HarddiskVolume1");
    EXPECT_EQ(find(23), u"\\Device\\HarddiskVolume");
    EXPECT_EQ(find(1), u"");
    EXPECT_EQ(find(0), std::u16string(30, u'#'));
}

TEST_F(FindVolumeTest, ClosesEachVolumeBeforeTheNextAndAsksForNtfsBeforeTheLastClose)
{
    AddDiskWithThreeVolumes();
    EXPECT_TRUE(Find(0, 10 * kMiB));

    std::vector<std::string> calls;
    for (const machine::CallRecord& record : machine.journal.Records()) {
        if (record.kind != machine::CallKind::Allocate && record.kind != machine::CallKind::Free) {
            calls.push_back(record.name + " " + record.object.substr(record.object.size() - 1) +
                            (record.code != 0 ? " " + std::to_string(record.length) : ""));
        }
    }
    EXPECT_EQ(calls,
              (std::vector<std::string>{"NtCreateFile 1", "NtDeviceIoControlFile 1 512", "NtClose 1", "NtCreateFile 2",
                                        "NtDeviceIoControlFile 2 512", "NtFsControlFile 2 96", "NtClose 2"}));
    EXPECT_EQ(machine.journal.Records()[2].code, 0x560000u);
    EXPECT_EQ(machine.journal.First({.kind = machine::CallKind::FsControl})->code, 0x90064u);
}

TEST_F(FindVolumeTest, OpensForReading)
{
    AddDiskWithThreeVolumes();
    EXPECT_TRUE(Find(0, 1 * kMiB));

    EXPECT_EQ(Opens().at(0).access, 0x120089u);
    EXPECT_EQ(Opens().at(0).options, 0x860u);
    for (const machine::CallRecord& record : machine.journal.Records()) {
        EXPECT_TRUE(record.input.empty());
    }
}

TEST_F(FindVolumeTest, AVolumeThatDoesNotOpenIsSkipped)
{
    AddDiskWithThreeVolumes();
    machine.faults.Fail({.name = "NtCreateFile", .object = "Volume1"}, 1, 0xC0000022);

    EXPECT_TRUE(Find(0, 10 * kMiB));
    EXPECT_EQ(Path(), u"\\Device\\HarddiskVolume2");
}

TEST_F(FindVolumeTest, AVolumeWithoutMemoryForItsDeviceIsSkipped)
{
    AddDiskWithThreeVolumes();
    machine.faults.Fail({.kind = machine::CallKind::Allocate}, 1, 0);

    EXPECT_TRUE(Find(0, 10 * kMiB));
    EXPECT_FALSE(Find(0, 5 * kMiB));
}

TEST_F(FindVolumeTest, AVolumeWhoseExtentsAreNotToldIsSkipped)
{
    AddDiskWithThreeVolumes();
    machine.faults.Fail({.code = kIoctlVolumeGetVolumeDiskExtents}, 2, 0xC0000010);

    EXPECT_FALSE(Find(0, 10 * kMiB));
    EXPECT_TRUE(Find(0, 20 * kMiB));
}

}  // namespace
}  // namespace kk
