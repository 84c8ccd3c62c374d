#include "backup/partition_copier.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bitmap_volume.h"
#include "core/file_opener.h"

namespace {

/// Devices that take any transfer; the journal tells what went where.
class PartitionCopierTest : public MachineTest {
protected:
    PartitionCopierTest()
    {
        for (const char16_t* const name : {u"Disk", u"Target", u"Live", u"Shadow"}) {
            AddDevice(name);
        }
        EXPECT_EQ(kk::OpenDevice(u"\\Device\\Disk", false, disk), 0);
        EXPECT_EQ(kk::OpenDevice(u"\\Device\\Target", true, target), 0);
        partition.start = 100 * kMiB;
        partition.length = 3 * kMiB;
        entry.partition = &partition;
        entry.imageOffset = 50 * kMiB;
        machine.journal.Clear();
    }

    void AddDevice(const std::u16string& name)
    {
        const auto device = std::make_shared<ScriptedDevice>();
        device->read = [](uint64_t, std::span<uint8_t> into) {
            return machine::IoResult{machine::kSuccess, into.size()};
        };
        device->write = [](uint64_t, std::span<const uint8_t> from) {
            return machine::IoResult{machine::kSuccess, from.size()};
        };
        machine.names.AddDevice(u"\\Device\\" + name, device);
        devices[name] = device;
    }

    void UseLiveVolume() { std::u16string(u"\\Device\\Live").copy(entry.volumeDevice, 63); }

    /// A snapshot of the volume of this name, shown by this device.
    void UseSnapshot(std::u16string_view volume, std::u16string_view shadow)
    {
        snapshots.table = static_cast<kk::SnapshotTableEntry*>(kk::MemAlloc(sizeof(kk::SnapshotTableEntry)));
        kk::ZeroBytes(snapshots.table, sizeof(kk::SnapshotTableEntry));
        volume.copy(snapshots.table->volumeName, 127);
        shadow.copy(snapshots.table->snapshotDevice, 299);
        snapshots.count = 1;
        std::u16string(u"name").copy(entry.snapshotVolumeName, 127);
    }

    void UseBits(const std::u16string& device, Bits bits)
    {
        entry.usedBlocks = true;
        entry.clusterSize = kMiB;
        devices[device]->control = [bits = std::move(bits)](const machine::ControlRequest& request) {
            return AnswerBitmap(bits, request, {});
        };
    }

    void UseFileSize(uint64_t size)
    {
        devices[u"Live"]->standardInformation = [size](kk::FileStandardInformation& information) {
            information.endOfFile = static_cast<int64_t>(size);
            return machine::kSuccess;
        };
    }

    KK_STATUS Copy(bool withSnapshots = true)
    {
        std::vector<uint8_t> buffer(kk::kTransferBytes);
        kk::PartitionCopier copier(*disk, *target, withSnapshots ? &snapshots : nullptr, buffer.data(), result);
        return copier.Copy(entry);
    }

    /// Every transfer as "Device offset+length", in MiB when that is whole.
    std::vector<std::string> Transfers() const
    {
        std::vector<std::string> transfers;
        const auto text = [](uint64_t bytes) {
            return bytes % kMiB == 0 ? std::to_string(bytes / kMiB) + "M" : std::to_string(bytes);
        };
        for (const machine::CallRecord& record : machine.journal.Records()) {
            if (record.kind == machine::CallKind::ReadFile || record.kind == machine::CallKind::WriteFile) {
                transfers.push_back(record.object.substr(record.object.rfind('\\') + 1) + " " + text(record.offset) +
                                    "+" + text(record.length));
            }
        }
        return transfers;
    }

    /// Snapshot used and whole, live used and whole, raw, all; then the bytes.
    std::vector<uint64_t> Counts() const
    {
        return {result.snapshotUsedBlockCopies,
                result.snapshotWholeCopies,
                result.liveUsedBlockCopies,
                result.liveWholeCopies,
                result.rawDiskCopies,
                result.partitionsCopied,
                result.bytesCopied};
    }

    using Texts = std::vector<std::string>;
    using Numbers = std::vector<uint64_t>;

    std::map<std::u16string, std::shared_ptr<ScriptedDevice>> devices;
    kk::DevicePtr disk;
    kk::DevicePtr target;
    kk::PartitionEntry partition = {};
    kk::BackupPlanEntry entry = {};
    kk::SnapshotSet snapshots;
    BackupResult result = {};
};

TEST_F(PartitionCopierTest, APartitionWithoutAVolumeIsCopiedFromTheDisk)
{
    EXPECT_EQ(Copy(), 0);
    EXPECT_EQ(Transfers(), (Texts{"Disk 100M+3M", "Target 50M+3M"}));
    EXPECT_EQ(Counts(), (Numbers{0, 0, 0, 0, 1, 1, 3 * kMiB}));
}

TEST_F(PartitionCopierTest, AVolumeIsCopiedFromItsBeginning)
{
    UseLiveVolume();
    UseFileSize(2 * kMiB + 512);

    EXPECT_EQ(Copy(), 0);
    EXPECT_EQ(Transfers(), (Texts{"Live 0M+2097664", "Target 50M+2097664"}));
    EXPECT_EQ(Counts(), (Numbers{0, 0, 0, 1, 0, 1, 2 * kMiB + 512}));
    EXPECT_EQ(machine.handles.OpenCount(), 2u);  // disk and target
}

TEST_F(PartitionCopierTest, AVolumeWithoutASizeOrWithTooMuchIsCopiedAsFarAsThePartitionGoes)
{
    UseLiveVolume();
    for (const uint64_t size : {uint64_t{0}, 3 * kMiB + 1, 3 * kMiB, uint64_t{INT64_MAX}}) {
        UseFileSize(size);
        machine.journal.Clear();

        EXPECT_EQ(Copy(), 0);
        EXPECT_EQ(Transfers(), (Texts{"Live 0M+3M", "Target 50M+3M"})) << size;
    }
}

TEST_F(PartitionCopierTest, TransfersAreEightMebibytesAtMost)
{
    partition.length = 20 * kMiB + 512;

    EXPECT_EQ(Copy(), 0);
    EXPECT_EQ(Transfers(), (Texts{"Disk 100M+8M", "Target 50M+8M", "Disk 108M+8M", "Target 58M+8M", "Disk 116M+4194816",
                                  "Target 66M+4194816"}));
    EXPECT_EQ(result.bytesCopied, 20 * kMiB + 512);
}

TEST_F(PartitionCopierTest, ASnapshotGoesBeforeTheLiveVolume)
{
    UseLiveVolume();
    UseSnapshot(u"name", u"\\Device\\Shadow");

    EXPECT_EQ(Copy(), 0);
    EXPECT_EQ(Transfers(), (Texts{"Shadow 0M+3M", "Target 50M+3M"}));
    EXPECT_EQ(Counts(), (Numbers{0, 1, 0, 0, 0, 1, 3 * kMiB}));
}

TEST_F(PartitionCopierTest, AVolumeWithoutASnapshotIsReadLive)
{
    UseLiveVolume();
    UseSnapshot(u"another", u"\\Device\\Shadow");

    EXPECT_EQ(Copy(), 0);
    EXPECT_EQ(Transfers()[0], "Live 0M+3M");
    EXPECT_EQ(Counts(), (Numbers{0, 0, 0, 1, 0, 1, 3 * kMiB}));
}

TEST_F(PartitionCopierTest, WithoutASetTheSnapshotIsNotLookedFor)
{
    UseLiveVolume();
    UseSnapshot(u"name", u"\\Device\\Shadow");

    EXPECT_EQ(Copy(false), 0);
    EXPECT_EQ(Transfers()[0], "Live 0M+3M");
}

TEST_F(PartitionCopierTest, AnEntryWithoutANameHasNoSnapshot)
{
    UseLiveVolume();
    UseSnapshot(u"", u"\\Device\\Shadow");
    entry.snapshotVolumeName[0] = 0;

    EXPECT_EQ(Copy(), 0);
    EXPECT_EQ(Transfers()[0], "Live 0M+3M");
}

TEST_F(PartitionCopierTest, ASnapshotThatDoesNotOpenIsReplacedByTheDisk)
{
    UseLiveVolume();
    UseSnapshot(u"name", u"\\Device\\Missing");

    EXPECT_EQ(Copy(), 0);
    EXPECT_EQ(Transfers(), (Texts{"Disk 100M+3M", "Target 50M+3M"}));
    EXPECT_EQ(Counts(), (Numbers{0, 0, 0, 0, 1, 1, 3 * kMiB}));
}

TEST_F(PartitionCopierTest, AVolumeThatDoesNotOpenIsReplacedByTheDisk)
{
    UseLiveVolume();
    machine.faults.Fail({.object = "Live"}, 1, 0xC0000022);

    EXPECT_EQ(Copy(), 0);
    EXPECT_EQ(Counts(), (Numbers{0, 0, 0, 0, 1, 1, 3 * kMiB}));
}

TEST_F(PartitionCopierTest, VolumesAreOpenedForReading)
{
    UseLiveVolume();

    EXPECT_EQ(Copy(), 0);
    EXPECT_EQ(machine.journal.First({.kind = machine::CallKind::CreateFile, .object = "Live"})->access, 0x120089u);
}

TEST_F(PartitionCopierTest, OnlyUsedBlocksAreCopied)
{
    partition.length = 30 * kMiB;
    UseLiveVolume();
    Bits bits(30, false);
    bits[0] = bits[1] = bits[29] = true;
    std::fill(bits.begin() + 10, bits.begin() + 20, true);
    UseBits(u"Live", bits);

    EXPECT_EQ(Copy(), 0);
    EXPECT_EQ(Transfers(), (Texts{"Live 0M+2M", "Target 50M+2M", "Live 10M+8M", "Target 60M+8M", "Live 18M+2M",
                                  "Target 68M+2M", "Live 29M+1M", "Target 79M+1M"}));
    EXPECT_EQ(Counts(), (Numbers{0, 0, 1, 0, 0, 1, 13 * kMiB}));
}

TEST_F(PartitionCopierTest, UsedBlocksOfASnapshotComeFromTheSnapshot)
{
    UseLiveVolume();
    UseSnapshot(u"name", u"\\Device\\Shadow");
    UseBits(u"Shadow", {false, true, false});

    EXPECT_EQ(Copy(), 0);
    EXPECT_EQ(Transfers(), (Texts{"Shadow 1M+1M", "Target 51M+1M"}));
    EXPECT_EQ(Counts(), (Numbers{1, 0, 0, 0, 0, 1, kMiB}));
    EXPECT_EQ(machine.journal.Count({.object = "Live", .code = kk::kFsctlGetVolumeBitmap}), 0u);
}

TEST_F(PartitionCopierTest, UsedBlocksAreClippedToThePartition)
{
    partition.length = 2 * kMiB + 512;
    UseLiveVolume();
    UseBits(u"Live", {false, true, true, true, false, true});

    EXPECT_EQ(Copy(), 0);
    EXPECT_EQ(Transfers(), (Texts{"Live 1M+1049088", "Target 51M+1049088"}));
    EXPECT_EQ(Counts(), (Numbers{0, 0, 1, 0, 0, 1, kMiB + 512}));
}

TEST_F(PartitionCopierTest, AnEmptyVolumeCountsAsCopied)
{
    UseLiveVolume();
    UseBits(u"Live", {false, false, false});

    EXPECT_EQ(Copy(), 0);
    EXPECT_TRUE(Transfers().empty());
    EXPECT_EQ(Counts(), (Numbers{0, 0, 1, 0, 0, 1, 0}));
}

TEST_F(PartitionCopierTest, WithoutABitmapThePartitionIsCopiedFromTheDisk)
{
    UseLiveVolume();
    UseBits(u"Live", {true});
    machine.faults.Fail({.code = kk::kFsctlGetVolumeBitmap}, 1, 0xC0000010);

    EXPECT_EQ(Copy(), 0);
    EXPECT_EQ(Transfers(), (Texts{"Disk 100M+3M", "Target 50M+3M"}));
    EXPECT_EQ(Counts(), (Numbers{0, 0, 0, 0, 1, 1, 3 * kMiB}));
    EXPECT_EQ(machine.handles.OpenCount(), 2u);  // disk and target
}

TEST_F(PartitionCopierTest, AFailingTransferEndsItAtOnce)
{
    partition.length = 20 * kMiB;
    UseLiveVolume();
    for (const machine::CallKind kind : {machine::CallKind::ReadFile, machine::CallKind::WriteFile}) {
        machine.journal.Clear();
        machine.faults.Clear();
        machine.faults.Fail({.kind = kind}, 2, 0xC000009C);

        EXPECT_EQ(Copy(), Status(0xC000009C));
        EXPECT_EQ(Transfers().size(), kind == machine::CallKind::ReadFile ? 3u : 4u);
        EXPECT_EQ(machine.handles.OpenCount(), 2u);  // disk and target
    }
    EXPECT_EQ(result.partitionsCopied, 0u);
    EXPECT_EQ(result.liveWholeCopies, 0u);
    EXPECT_EQ(result.rawDiskCopies, 0u);
}

TEST_F(PartitionCopierTest, AFailingTransferOfUsedBlocksIsNotTriedRaw)
{
    UseLiveVolume();
    UseBits(u"Live", {true, false, true});
    machine.faults.Fail({.kind = machine::CallKind::ReadFile}, 2, 0xC0000011);

    EXPECT_EQ(Copy(), Status(0xC0000011));
    EXPECT_EQ(Counts(), (Numbers{0, 0, 0, 0, 0, 0, kMiB}));
}

}  // namespace
