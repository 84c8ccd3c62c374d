#include <algorithm>
#include <optional>
#include <utility>

#include "exports/support/backup_test.h"
#include "support/forked_run.h"

namespace {

using machine::CallKind;

class BackupFailureTest : public BackupTest {
protected:
    bool ImageExists() const { return images->Knows(ImagePath()); }

    /// Has the system tell of MBR partitions that no disk has, by their starts and lengths.
    void PretendPartitions(const std::vector<std::pair<int64_t, int64_t>>& places)
    {
        kk::DriveLayoutInformationEx head = {};
        head.partitionStyle = kk::WirePartitionStyle::Mbr;
        head.partitionCount = static_cast<uint32_t>(places.size());
        std::vector<uint8_t> answer = machine::BytesOf(head);
        for (const auto& [start, length] : places) {
            kk::PartitionInformationEx partition = {};
            partition.startingOffset = start;
            partition.partitionLength = length;
            partition.mbr.partitionType = 7;
            const std::vector<uint8_t> bytes = machine::BytesOf(partition);
            answer.insert(answer.end(), bytes.begin(), bytes.end());
        }
        machine.OnControl({.code = 0x70050}, [answer](const machine::CallRecord&, const machine::ControlRequest&) {
            return std::optional(machine::ControlAnswer{.output = answer});
        });
    }
};

TEST_F(BackupFailureTest, RefusesArgumentsThatAreMissing)
{
    SHOWS(KkBackup, KK_STATUS_INVALID_PARAMETER,
          "no image path, or a count without partition numbers; nothing is done");

    AddUsualDisk();
    const std::u16string path = WindowsPath(ImagePath());

    EXPECT_EQ(api.backup(0, nullptr, nullptr, 0, 0, 0, 0, nullptr, 0, 1, 0, &result), KK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(api.backup(0, path.c_str(), nullptr, 1, 0, 0, 0, nullptr, 0, 1, 0, &result), KK_STATUS_INVALID_PARAMETER);

    EXPECT_TRUE(machine.journal.Records().empty());
}

TEST_F(BackupFailureTest, PassesOnThatTheDiskDoesNotOpen)
{
    SHOWS(KkBackup, 0xC0000034, "the status of a disk that does not open is passed on; no image is made");

    EXPECT_EQ(Backup(), Status(0xC0000034));

    EXPECT_FALSE(ImageExists());
    EXPECT_TRUE(ResultIsUntouched());
}

TEST_F(BackupFailureTest, PassesOnThatTheLayoutCannotBeRead)
{
    SHOWS(KkBackup, 0xC000009C, "the status of a layout that cannot be read is passed on");

    machine.AddDisk(8 * kMiB);
    machine.faults.FailFrom({.code = 0x70050}, 1, 0xC000009C);

    EXPECT_EQ(Backup(), Status(0xC000009C));
}

TEST_F(BackupFailureTest, DoesNotSupportADiskWithoutATable)
{
    SHOWS(KkBackup, KK_STATUS_NOT_SUPPORTED,
          "the disk has neither an MBR nor a GPT, found before the service is looked for");

    machine.AddDisk(8 * kMiB);
    machine.modules.Remove(u"virtdisk.dll");

    EXPECT_EQ(Backup(), KK_STATUS_NOT_SUPPORTED) << "this is found out before the service is looked for";
}

TEST_F(BackupFailureTest, NeedsTheVirtualDiskServiceBeforeItLooksAtAnyVolume)
{
    SHOWS(KkBackup, KK_STATUS_NOT_FOUND, "the virtual-disk service is missing; no volume is looked at");

    AddUsualDisk();
    machine.modules.Remove(u"virtdisk.dll");

    EXPECT_EQ(Backup(), KK_STATUS_NOT_FOUND);
    EXPECT_EQ(machine.journal.Count({.object = "HarddiskVolume"}), 0u);

    EXPECT_EQ(Backup(), KK_STATUS_NOT_FOUND);
    EXPECT_EQ(machine.journal.Count({.kind = CallKind::LoadLibrary}), 1u) << "it is looked for once";
}

TEST_F(BackupFailureTest, FindsOutLaterThatAnEntryPointIsMissing)
{
    SHOWS(KkBackup, KK_STATUS_NOT_FOUND,
          "an entry point of the virtual-disk service is missing; from the second backup on an empty image is left");

    AddUsualDisk();
    for (const char* const entry : {"AttachVirtualDisk", "DetachVirtualDisk", "GetVirtualDiskPhysicalPath"}) {
        EXPECT_EQ(RunForked([&] {
                      machine.modules.RemoveEntry(u"virtdisk.dll", entry);
                      EXPECT_EQ(Backup(), KK_STATUS_NOT_FOUND);
                      EXPECT_FALSE(ImageExists());

                      // The second answer of the binding is lenient, so the image is made before the gap shows.
                      EXPECT_EQ(Backup(), KK_STATUS_NOT_FOUND);
                      EXPECT_TRUE(ImageExists());
                      EXPECT_FALSE(HasManifest());
                      EXPECT_EQ(machine.Imbalances(), std::vector<std::string>{});
                      return 0;
                  }),
                  0)
            << entry;
    }
}

TEST_F(BackupFailureTest, FailsWhenTheImageExistsAlready)
{
    SHOWS(KkBackup, KK_STATUS_UNSUCCESSFUL, "the image exists already");

    AddUsualDisk();
    ASSERT_EQ(Backup(), 0);

    EXPECT_EQ(Backup(), KK_STATUS_UNSUCCESSFUL);
    EXPECT_TRUE(ResultIsUntouched());
}

TEST_F(BackupFailureTest, LeavesTheImageWhenItCannotBeAttached)
{
    SHOWS(KkBackup, KK_STATUS_UNSUCCESSFUL, "the image cannot be attached; its file stays");

    AddUsualDisk();
    machine.faults.Fail({.name = "AttachVirtualDisk"}, 1, 32);

    EXPECT_EQ(Backup(), KK_STATUS_UNSUCCESSFUL);

    EXPECT_TRUE(ImageExists());
    EXPECT_EQ(machine.journal.Count({.name = "DetachVirtualDisk"}), 0u);
}

TEST_F(BackupFailureTest, DetachesTheImageWhenItsDiskCannotBeNamed)
{
    SHOWS(KkBackup, KK_STATUS_UNSUCCESSFUL, "the name of the image's disk cannot be learnt; it is detached");

    AddUsualDisk();
    virtualDisks.behaviour.pathFailure = 55;

    EXPECT_EQ(Backup(), KK_STATUS_UNSUCCESSFUL);

    EXPECT_EQ(machine.journal.Count({.name = "DetachVirtualDisk"}), 1u);
    EXPECT_FALSE(virtualDisks.DiskNumberOf(ImagePath()).has_value());
}

TEST_F(BackupFailureTest, PassesOnThatTheImagesDiskDoesNotOpen)
{
    SHOWS(KkBackup, 0xC0000022, "the image's disk does not open; it is detached");

    AddUsualDisk();
    machine.faults.Fail({.kind = CallKind::CreateFile, .object = "PhysicalDrive1"}, 1, 0xC0000022);

    EXPECT_EQ(Backup(), Status(0xC0000022));

    EXPECT_TRUE(ImageExists());
    EXPECT_FALSE(virtualDisks.DiskNumberOf(ImagePath()).has_value());
}

TEST_F(BackupFailureTest, PassesOnThatTheSourceDoesNotOpenASecondTime)
{
    SHOWS(KkBackup, 0xC0000043, "the source does not open for its data; not even the table is in the image");

    AddUsualDisk();
    machine.faults.Fail({.kind = CallKind::CreateFile, .object = "PhysicalDrive0"}, 2, 0xC0000043);

    EXPECT_EQ(Backup(), Status(0xC0000043));

    EXPECT_TRUE(Image()->WriteSizes().empty()) << "not even the table is there";
}

TEST_F(BackupFailureTest, PassesOnThatTheTableCannotBeWritten)
{
    SHOWS(KkBackup, KK_STATUS_DISK_FULL,
          "the status of a failing write of the table is passed on; no manifest, and the image detached");

    AddUsualDisk();
    machine.faults.Fail({.kind = CallKind::WriteFile, .object = "PhysicalDrive1"}, 3, 0xC000007F);

    EXPECT_EQ(Backup(), Status(0xC000007F));

    EXPECT_EQ(Image()->WriteSizes().size(), 2u);
    EXPECT_FALSE(HasManifest());
    EXPECT_FALSE(virtualDisks.DiskNumberOf(ImagePath()).has_value());
}

TEST_F(BackupFailureTest, LeavesTheImageWithItsTableWhenThereIsNoTransferBuffer)
{
    SHOWS(KkBackup, KK_STATUS_NO_MEMORY, "no memory for the buffer; the image has its table, no manifest is made");

    AddUsualDisk();
    machine.heap.SetLimit(4 * kMiB);

    EXPECT_EQ(Backup(), KK_STATUS_NO_MEMORY);

    EXPECT_EQ(ImagePartitionStarts().size(), 3u);
    EXPECT_EQ(Image()->WriteSizes().size(), 5u);
    EXPECT_FALSE(HasManifest());
    EXPECT_TRUE(ResultIsUntouched());
}

TEST_F(BackupFailureTest, EndsWithTheFirstReadThatFailsAndDoesNotTryAgain)
{
    SHOWS(KkBackup, 0xC000009C, "the first read that fails ends it and is not tried again; image left, no manifest");

    AddUsualDisk();
    machine.faults.Fail({.kind = CallKind::ReadFile}, 4, 0xC000009C);

    EXPECT_EQ(Backup({.useSnapshots = 1}), Status(0xC000009C));

    EXPECT_EQ(machine.journal.Count({.kind = CallKind::ReadFile}), 4u);
    EXPECT_EQ(machine.journal.Count({.kind = CallKind::Flush}), 1u) << "the one after the table";
    EXPECT_TRUE(ImageExists());
    EXPECT_FALSE(HasManifest());
    EXPECT_TRUE(ResultIsUntouched());
}

TEST_F(BackupFailureTest, EndsWithTheFirstWriteThatFails)
{
    SHOWS(KkBackup, KK_STATUS_DISK_FULL, "the first write that fails ends it; no manifest, the result untouched");

    AddUsualDisk();
    machine.faults.Fail({.kind = CallKind::WriteFile}, 7, 0xC000007F);

    EXPECT_EQ(Backup(), Status(0xC000007F));

    EXPECT_FALSE(HasManifest());
    EXPECT_TRUE(ResultIsUntouched());
}

TEST_F(BackupFailureTest, EndsWhenAReadOrAWriteMakesNoProgress)
{
    SHOWS(KkBackup, KK_STATUS_END_OF_FILE, "a read makes no progress");
    SHOWS(KkBackup, KK_STATUS_UNSUCCESSFUL, "a write makes no progress");

    AddUsualDisk();
    machine.faults.Shorten({.kind = CallKind::ReadFile}, 2, 0);
    EXPECT_EQ(Backup(), KK_STATUS_END_OF_FILE);

    images->Remove(ImagePath());
    machine.faults.Clear();
    machine.faults.Shorten({.kind = CallKind::WriteFile}, 8, 0);
    EXPECT_EQ(Backup(), KK_STATUS_UNSUCCESSFUL);
}

TEST_F(BackupFailureTest, GoesOnAfterShortTransfers)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "transfers that are cut short are gone on with");

    machine::Disk& disk = AddUsualDisk();
    // The first five writes are the partition table's.
    uint64_t nth = 1;
    for (const uint64_t bytes : {512u, 4096u, 1024u * 1024u}) {
        ++nth;
        machine.faults.Shorten({.kind = CallKind::ReadFile}, nth, bytes);
        machine.faults.Shorten({.kind = CallKind::WriteFile}, 5 + nth, bytes);
    }

    ASSERT_EQ(Backup(), 0);

    EXPECT_EQ(std::ranges::count(machine.journal.Records(), true, &machine::CallRecord::struck), 6);
    ExpectSameBytes(disk, kEfiStart, kEfiStart, kEfiLength);
    ExpectSameBytes(disk, kNtfsStart, kNtfsStart, kNtfsLength);
}

TEST_F(BackupFailureTest, WritesResultAndManifestEvenWhenDetachingFails)
{
    SHOWS(KkBackup, KK_STATUS_UNSUCCESSFUL, "only detaching failed; result and manifest are written");

    AddUsualDisk();
    machine.faults.Fail({.name = "DetachVirtualDisk"}, 1, 1392);

    EXPECT_EQ(Backup(), KK_STATUS_UNSUCCESSFUL);

    EXPECT_EQ(result.partitionsCopied, 3u);
    EXPECT_TRUE(HasManifest());
    EXPECT_EQ(machine.journal.Count({.name = "DetachVirtualDisk"}), 1u) << "it counts as detached afterwards";
}

TEST_F(BackupFailureTest, DoesNotMindAManifestThatCannotBeWritten)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "a manifest that cannot be written does not matter");

    AddUsualDisk();
    std::filesystem::create_directory(ManifestPath());

    EXPECT_EQ(Backup(), 0);

    EXPECT_EQ(result.partitionsCopied, 3u);
}

TEST_F(BackupFailureTest, DoesNotMindAFlushThatFails)
{
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "a flush that fails does not matter");

    AddUsualDisk();
    machine.faults.FailFrom({.kind = CallKind::Flush}, 1, 0xC0000185);

    EXPECT_EQ(Backup(), 0);
}

TEST_F(BackupFailureTest, FailsWhenTheImageWouldBeLargerThanNumbersGo)
{
    SHOWS(KkBackup, KK_STATUS_UNSUCCESSFUL, "the image would be larger than numbers go, and is not made");

    AddUsualDisk();
    machine.OnControl(
        {.code = 0x700A0},
        [](const machine::CallRecord&, const machine::ControlRequest&) -> std::optional<machine::ControlAnswer> {
            kk::DiskGeometryEx geometry = {};
            geometry.bytesPerSector = 512;
            geometry.diskSize = -1;
            return machine::ControlAnswer{.output = machine::BytesOf(geometry)};
        });

    EXPECT_EQ(Backup(), KK_STATUS_UNSUCCESSFUL);
    EXPECT_FALSE(ImageExists());
}

TEST_F(BackupFailureTest, FailsWhenPackedPartitionsWouldEndBeyondAllNumbers)
{
    SHOWS(KkBackup, KK_STATUS_UNSUCCESSFUL, "packed partitions would end beyond all numbers; no image is made");

    AddUsualDisk();
    PretendPartitions({{kMiB, INT64_MAX}, {kMiB, INT64_MAX}, {kMiB, INT64_MAX}, {kMiB, INT64_MAX}});

    EXPECT_EQ(Backup({.compact = 1}), KK_STATUS_UNSUCCESSFUL);
    EXPECT_FALSE(ImageExists());
}

TEST_F(BackupFailureTest, NeverTurnsAWrappedOffsetIntoAWriteElsewhere)
{
    SHOWS(KkBackup, KK_STATUS_INVALID_PARAMETER, "a partition lies where no disk can reach; no data is written");

    AddUsualDisk();
    PretendPartitions({{-1, int64_t{1} << 40}});

    EXPECT_EQ(Backup(), KK_STATUS_INVALID_PARAMETER);

    EXPECT_EQ(Image()->WriteSizes(), (std::vector<uint64_t>{512})) << "the table alone";
}

}  // namespace
