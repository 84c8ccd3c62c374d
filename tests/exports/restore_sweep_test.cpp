#include <algorithm>

#include "backup/image_partition_table.h"
#include "core/transfer.h"
#include "disk/volume_controls.h"
#include "exports/support/restore_test.h"
#include "support/sweep.h"

// Each call of the machine fails once, alone or with all that come after it.

namespace {

using machine::CallKind;
using machine::CallRecord;

constexpr uint64_t kDeviceObjectBytes = 16;
constexpr uint64_t kPartitionListBytes = 8 * sizeof(kk::GptImageEntry);

bool IsRequest(const CallRecord& call)
{
    return call.kind == CallKind::DeviceControl || call.kind == CallKind::FsControl;
}

/// What happened before one call, as far as it tells what the call was made for.
class Before {
public:
    Before(const machine::Journal& journal, const CallRecord& call)
    {
        for (const CallRecord& earlier : journal.Records()) {
            if (earlier.index >= call.index) {
                continue;
            }
            const bool opens =
                earlier.kind == CallKind::CreateFile && earlier.object.find(".vhdx") == std::string::npos;
            targetOpened = targetOpened || opens;
            targetOpenedToWrite = targetOpenedToWrite || (opens && (earlier.access & machine::kFileWriteData) != 0);
            partitionsListed = partitionsListed || earlier.length == kPartitionListBytes;
            driveRead =
                driveRead || (earlier.kind == CallKind::ReadFile && earlier.object.find("Drive") != std::string::npos);
            volumeUnlocked = volumeUnlocked || earlier.code == 0x9001C;
        }
    }

    bool targetOpened = false;
    bool targetOpenedToWrite = false;
    bool driveRead = false;
    bool partitionsListed = false;  // the image's; a list of the chosen ones takes as much memory
    bool volumeUnlocked = false;
};

/// What reading an image's table owes. The other copy of a region table makes up for one that cannot be read.
int32_t OwedByImage(const CallRecord& call, const Before& before)
{
    switch (call.kind) {
    case CallKind::ReadFile:
        return call.offset == 0x30000   ? 0
               : call.offset == 0x40000 ? KK_STATUS_REGISTRY_CORRUPT
                                        : static_cast<int32_t>(call.result);
    case CallKind::Allocate:
        return call.length == kDeviceObjectBytes || before.partitionsListed ? KK_STATUS_NO_MEMORY
                                                                            : KK_STATUS_UNSUCCESSFUL;
    case CallKind::CreateFile:
        return static_cast<int32_t>(call.result);
    default:
        return 0;
    }
}

/// What a target owes whose requests are all best effort. `allocation` is owed by memory for anything but the object
/// and the buffer.
int32_t OwedByTarget(const CallRecord& call, int32_t allocation = KK_STATUS_NO_MEMORY)
{
    switch (call.kind) {
    case CallKind::Allocate:
        return call.length == kDeviceObjectBytes || call.length == kk::kTransferBytes ? KK_STATUS_NO_MEMORY
                                                                                      : allocation;
    case CallKind::CreateFile:
    case CallKind::ReadFile:
    case CallKind::WriteFile:
        return static_cast<int32_t>(call.result);
    default:
        return 0;
    }
}

class RestoreSweepTest : public RestoreTest {
protected:
    static constexpr uint64_t kSize = 10 * kMiB;
    static constexpr Place kFirst = {kMiB, kMiB};
    static constexpr Place kSecond = {3 * kMiB, 2 * kMiB};

    using Debt = std::function<int32_t(const CallRecord&, const Before&, FaultMode)>;

    RestoreSweepTest()
    {
        MakeImage(kSmallGpt, {kFirst, kSecond}, kSize);
        BeginCall();
        machine.heap.SetFast(true);
    }

    /// Sweeps a restore in all modes, and answers how many pairs of failures it met. `inOrder` is what it writes to the
    /// disk, `last` the request that a success ends with and that a failure never sees.
    [[nodiscard]] uint64_t Sweep(const std::function<int32_t()>& restore, const std::vector<Place>& inOrder,
                                 const Debt& owed, uint32_t last = 0)
    {
        uint64_t pairs = 0;
        for (const FaultMode mode : {FaultMode::OneCall, FaultMode::ThatCallAndAllLater, FaultMode::TwoCalls}) {
            const DiskBytes before(Target());
            const uint64_t met =
                SweepFailingCalls(machine, mode, restore, [&](const CallRecord* failed, int32_t status) {
                    EXPECT_EQ(status, Owed(owed, mode));
                    EXPECT_TRUE(status == 0 || last == 0 || machine.journal.Count({.code = last}) == 0);
                    EXPECT_TRUE(failed != nullptr || last == 0 || Succeeded({.code = last}) == 1);
                    ExpectTheWritesThatSucceeded(before, inOrder, status);
                });
            if (mode == FaultMode::TwoCalls) {
                pairs = met;
            } else {
                EXPECT_GT(met, 20u);
            }
        }
        return pairs;
    }

    size_t Succeeded(const machine::CallPattern& pattern) const
    {
        const std::vector<CallRecord> calls = machine.journal.FindAll(pattern);
        return static_cast<size_t>(std::ranges::count_if(
            calls, [](const CallRecord& call) { return static_cast<int32_t>(call.result) >= 0; }));
    }

    /// The file system's part of an extension, which would write to the disk too.
    void PretendToExtend()
    {
        machine.OnControl({.code = 0x900F0}, [](const CallRecord&, const machine::ControlRequest&) {
            return std::optional(machine::ControlAnswer{});
        });
    }

    /// Set where a source that cannot be read ends a copy with success.
    bool readsAreOptional = false;

private:
    int32_t Owed(const Debt& owed, FaultMode mode) const
    {
        return FirstDebt(machine.journal,
                         [&](const CallRecord& call) { return owed(call, Before(machine.journal, call), mode); });
    }

    /// A clone ends at a sector that cannot be read by itself either. What comes before it is written.
    void EndAtUnreadableSector(Place& place) const
    {
        for (const CallRecord& read : machine.journal.FindAll({.kind = CallKind::ReadFile})) {
            if (readsAreOptional && read.struck && read.length == 512) {
                place.length = read.offset;
            }
        }
    }

    void ExpectTheWritesThatSucceeded(const DiskBytes& before, std::vector<Place> inOrder, int32_t status) const
    {
        const size_t writes = Succeeded({.kind = CallKind::WriteFile});
        ASSERT_LE(writes, inOrder.size());
        EXPECT_TRUE(readsAreOptional || (status == 0) == (writes == inOrder.size()));
        for (size_t i = 0; i < inOrder.size(); ++i) {
            EXPECT_EQ(before.HasChanged(inOrder[i]), i < writes) << inOrder[i];
        }
        EndAtUnreadableSector(inOrder.back());
        inOrder.resize(writes);
        EXPECT_THAT(written, testing::ElementsAreArray(inOrder)) << "and nothing else was written";
    }
};

TEST_F(RestoreSweepTest, ADiskWithItsTable)
{
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "what does not concern data or tables may fail");
    SHOWS(KkRestorePartitions, KK_STATUS_NO_MEMORY,
          "no memory for a device, a list or the buffer; the disk is written as far as the writes succeeded");
    SHOWS(KkRestorePartitions, KK_STATUS_UNSUCCESSFUL, "no memory while reading the image or for the new table");
    SHOWS(KkRestorePartitions, KK_STATUS_REGISTRY_CORRUPT, "the image's metadata cannot be found");

    AddTarget(kSize);
    const uint64_t pairs =
        Sweep([this] { return RestorePartitions({1, 2}, 1); },
              {{0, 512}, {512, 512}, {1024, 16384}, {kSize - 512 - 16384, 16384}, {kSize - 512, 512}, kFirst, kSecond},
              [](const CallRecord& call, const Before& before, FaultMode) {
                  return before.targetOpened ? OwedByTarget(call, KK_STATUS_UNSUCCESSFUL) : OwedByImage(call, before);
              });
    EXPECT_GE(pairs, 8u);
}

TEST_F(RestoreSweepTest, FreeSpaceOfAGpt)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "what only tells the system of the change may fail");
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_BUFFER_TOO_SMALL, "the disk does not tell its size");
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_NO_MEMORY, "no memory for a device, a list, the table or the buffer");
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_UNSUCCESSFUL, "no memory while reading the image");

    AddTarget(kSmallGpt, {{kMiB, kMiB}}, kSize);
    const uint64_t pairs = Sweep(
        [this] { return RestoreToFreeSpace(2, 4 * kMiB, 5 * kMiB); },
        {{1024, 16384}, {512, 512}, {kSize - 512 - 16384, 16384}, {kSize - 512, 512}, {4 * kMiB, 2 * kMiB}},
        [](const CallRecord& call, const Before& before, FaultMode mode) {
            if (AsksForSize(call)) {
                return mode == FaultMode::ThatCallAndAllLater ? 0 : KK_STATUS_BUFFER_TOO_SMALL;
            }
            const bool looksForTheUsableArea = call.kind == CallKind::ReadFile && !before.driveRead;
            return !before.targetOpened ? OwedByImage(call, before) : looksForTheUsableArea ? 0 : OwedByTarget(call);
        },
        0x70140);
    EXPECT_GE(pairs, 16u);
}

TEST_F(RestoreSweepTest, FreeSpaceOfAnMbr)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "what only tells the system of the change may fail, on an MBR disk");
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_BUFFER_TOO_SMALL, "an MBR disk does not tell its size");
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_NO_MEMORY,
          "no memory for a device, a list, the table or the buffer, on an MBR disk");
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_UNSUCCESSFUL, "no memory while reading the image, for an MBR disk");

    AddTarget(kSmallMbr, {{kMiB, kMiB}}, kSize);
    const uint64_t pairs =
        Sweep([this] { return RestoreToFreeSpace(2, 4 * kMiB, 5 * kMiB, 1); }, {{0, 512}, {4 * kMiB, 2 * kMiB}},
              [](const CallRecord& call, const Before& before, FaultMode mode) {
                  if (AsksForSize(call)) {
                      return mode == FaultMode::ThatCallAndAllLater ? 0 : KK_STATUS_BUFFER_TOO_SMALL;
                  }
                  return before.targetOpened ? OwedByTarget(call) : OwedByImage(call, before);
              },
              0x70140);
    EXPECT_GE(pairs, 20u);
}

TEST_F(RestoreSweepTest, AVolumeThatIsExtendedAfterwards)
{
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "lock, dismount, flush, unlock and the extension may fail");
    SHOWS(KkRestoreToVolume, KK_STATUS_NO_MEMORY, "no memory for a device, a list or the buffer");
    SHOWS(KkRestoreToVolume, KK_STATUS_UNSUCCESSFUL, "no memory while reading the image");

    machine::FormatRegion(MakeImage(kSmallGpt, {kFirst, kSecond}, kSize), 512, kSecond.start, kSecond.length,
                          machine::FileSystem::Ntfs, {});
    BeginCall();
    AddTarget(kSmallGpt, {{4 * kMiB, 5 * kMiB}}, kSize);
    PretendToExtend();
    const std::u16string volume = VolumeAt(4 * kMiB);
    const uint64_t pairs = Sweep(
        [this, &volume] { return RestoreToVolume(2, volume, 1); }, {{4 * kMiB, 2 * kMiB}},
        [](const CallRecord& call, const Before& before, FaultMode) {
            return !before.targetOpened ? OwedByImage(call, before) : before.volumeUnlocked ? 0 : OwedByTarget(call);
        },
        0x900F0);
    EXPECT_GE(pairs, 26u);
}

TEST_F(RestoreSweepTest, AClonedVolume)
{
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS,
          "lock, dismount, flush, unlock, the extension and reads of the source may fail");
    SHOWS(KkCloneVolume, KK_STATUS_NO_MEMORY, "no memory for a device or the buffer");
    SHOWS(KkCloneVolume, KK_STATUS_UNSUCCESSFUL, "the source does not tell its size");

    AddTarget(kSmallGpt, {kFirst, kSecond, {6 * kMiB, 3 * kMiB}}, kSize);
    Target().WriteBytes(kSecond.start, Pattern(kSecond.length, 1));
    machine.FindVolume(0, 6 * kMiB)->SetNtfsData([](const machine::ControlRequest&) {
        kk::NtfsVolumeData data = {};
        data.numberSectors = 1000;
        return machine::ControlAnswer{.output = machine::BytesOf(data)};
    });
    PretendToExtend();
    readsAreOptional = true;
    const std::u16string source = VolumeAt(kSecond.start);
    const std::u16string target = VolumeAt(6 * kMiB);
    const uint64_t pairs =
        Sweep([&] { return CloneVolume(source, target, 1); }, {{6 * kMiB, 2 * kMiB}},
              [](const CallRecord& call, const Before& before, FaultMode) {
                  if (!before.targetOpenedToWrite) {
                      return IsRequest(call) && call.code == 0x7405C ? KK_STATUS_UNSUCCESSFUL : OwedByTarget(call);
                  }
                  return before.volumeUnlocked || call.kind == CallKind::ReadFile ? 0 : OwedByTarget(call);
              },
              0x900F0);
    EXPECT_GE(pairs, 24u);
}

}  // namespace
