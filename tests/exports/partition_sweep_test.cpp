#include <algorithm>

#include "exports/support/partition_edit_test.h"
#include "support/sweep.h"

// Each call of the machine fails once, alone or with all that come after it.

namespace {

using machine::CallKind;
using machine::CallRecord;

constexpr uint64_t kStart = 1 << 20;
constexpr DiskKind kKinds[] = {kSmallGpt, kSmallMbr};

bool Concerns(const CallRecord& call, const char* object)
{
    return call.object.find(object) != std::string::npos;
}

/// What happened before one call of an export, as far as it tells what the call was made for.
class Before {
public:
    Before(const machine::Journal& journal, const CallRecord& call)
    {
        for (const CallRecord& earlier : journal.Records()) {
            if (earlier.index < call.index && earlier.kind == CallKind::CreateFile) {
                const bool writes = (earlier.access & machine::kFileWriteData) != 0;
                driveOpenedToWrite = driveOpenedToWrite || (writes && Concerns(earlier, "PhysicalDrive"));
                volumeOpenedToWrite = volumeOpenedToWrite || (writes && Concerns(earlier, "HarddiskVolume"));
                lastOpened = earlier.object;
            }
        }
        if (call.kind == CallKind::CreateFile) {
            lastOpened = call.object;
        }
    }
    bool IsAboutDrive() const { return lastOpened.find("PhysicalDrive") != std::string::npos; }
    bool IsAboutVolume() const { return lastOpened.find("HarddiskVolume") != std::string::npos; }

    bool driveOpenedToWrite = false;
    bool volumeOpenedToWrite = false;
    std::string lastOpened;  // whose handle or memory the call is about
};

/// The status of a call that nothing can make up for.
int32_t OwnStatus(const CallRecord& call)
{
    return call.kind == CallKind::Allocate ? KK_STATUS_NO_MEMORY : static_cast<int32_t>(call.result);
}

bool IsRequest(const CallRecord& call, uint32_t code)
{
    return (call.kind == CallKind::DeviceControl || call.kind == CallKind::FsControl) && call.code == code;
}

/// What reading a disk's layout or editing its table owes. `unknownSize` is owed when the disk does not tell its size.
int32_t OwedByDrive(const CallRecord& call, FaultMode mode, int32_t unknownSize)
{
    if (AsksForSize(call)) {
        return mode == FaultMode::ThatCallAndAllLater ? 0 : unknownSize;
    }
    // Asked again with more room, for which there is none when all calls fail.
    const bool ignored = IsRequest(call, 0x70050) || IsRequest(call, 0x70140) || call.kind == CallKind::Flush;
    return ignored ? 0 : OwnStatus(call);
}

class PartitionSweepTest : public PartitionEditTest {
protected:
    using Debt = std::function<int32_t(const CallRecord&, const Before&, FaultMode)>;

    /// Sweeps an edit in all modes, and answers how many pairs of failures it met. `check` sees what each run has left
    /// behind.
    [[nodiscard]] uint64_t Sweep(const std::function<int32_t()>& edit, const Debt& owed,
                                 const std::function<void(int32_t status)>& check)
    {
        uint64_t pairs = 0;
        for (const FaultMode mode : {FaultMode::OneCall, FaultMode::ThatCallAndAllLater, FaultMode::TwoCalls}) {
            const DiskBytes before(TheDisk());
            const uint64_t met =
                SweepFailingCalls(machine, mode, edit, [&](const CallRecord* /*failed*/, int32_t status) {
                    EXPECT_EQ(status, Owed(owed, mode));
                    ExpectTheWritesThatSucceeded(before, status);
                    check(status);
                });
            if (mode == FaultMode::TwoCalls) {
                pairs = met;
            } else {
                EXPECT_GT(met, 10u);
            }
        }
        return pairs;
    }

    size_t Succeeded(const machine::CallPattern& pattern) const
    {
        const std::vector<CallRecord> calls = machine.journal.FindAll(pattern);
        return static_cast<size_t>(std::ranges::count_if(calls, [](const CallRecord& call) {
            const bool isBool = call.kind == CallKind::Win32Bool;
            return isBool ? call.result != 0 : static_cast<int32_t>(call.result) >= 0;
        }));
    }

    /// What the edits do not rescan, the driver does not know.
    void ExpectDriverKnows(const std::vector<Place>& before, const std::vector<Place>& after) const
    {
        EXPECT_EQ(Partitions(), Succeeded({.code = 0x70140}) > 0 ? after : before);
    }

    DiskKind kind;

private:
    int32_t Owed(const Debt& owed, FaultMode mode) const
    {
        return FirstDebt(machine.journal,
                         [&](const CallRecord& call) { return owed(call, Before(machine.journal, call), mode); });
    }

    /// Array and header of the first copy, then of the second: as many of them have changed as there were writes.
    void ExpectTheWritesThatSucceeded(const DiskBytes& before, int32_t status) const
    {
        const TableSectors sectors(kind, kDiskSize);
        std::vector<Place> inOrder = {sectors.primaryHeader};
        if (kind.table == TableKind::Gpt) {
            inOrder = {sectors.primaryArray, sectors.primaryHeader, sectors.backupArray, sectors.backupHeader};
        }
        const bool byDriver = Succeeded({.code = 0x7C0D0}) > 0;
        const size_t writes = byDriver ? inOrder.size() : Succeeded({.kind = CallKind::WriteFile});
        ASSERT_LE(writes, inOrder.size());
        EXPECT_EQ(status == 0, writes == inOrder.size());
        for (size_t i = 0; i < inOrder.size(); ++i) {
            EXPECT_EQ(before.HasChanged(inOrder[i]), i < writes) << inOrder[i];
        }
        inOrder.resize(writes);
        EXPECT_THAT(written, testing::UnorderedElementsAreArray(inOrder)) << "and nothing else was written";
    }
};

TEST_F(PartitionSweepTest, Creating)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "what only tells the system of the change may fail");
    SHOWS(KkCreatePartition, KK_STATUS_NO_MEMORY,
          "whichever allocation fails, nothing is left open, and the table is written as far as its writes "
          "succeeded");
    SHOWS(KkCreatePartition, KK_STATUS_BUFFER_TOO_SMALL, "the disk does not tell its size");

    for (const DiskKind& each : kKinds) {
        kind = each;
        AddDisk(kind, {{kStart, 4 * kMiB}});
        const uint64_t pairs =
            Sweep([this] { return Create(8 * kMiB, 8 * kMiB); },
                  [](const CallRecord& call, const Before&, FaultMode mode) {
                      return OwedByDrive(call, mode, KK_STATUS_BUFFER_TOO_SMALL);
                  },
                  [this](int32_t status) {
                      EXPECT_EQ(created, status == 0 ? 8 * kMiB : kNotWritten);
                      ExpectDriverKnows({{kStart, 4 * kMiB}}, {{kStart, 4 * kMiB}, {8 * kMiB, 8 * kMiB}});
                  });
        EXPECT_GE(pairs, 6u);
    }
}

TEST_F(PartitionSweepTest, Deleting)
{
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS,
          "what concerns the volume or only tells the system of the change may fail");
    SHOWS(KkDeletePartition, KK_STATUS_NO_MEMORY, "whichever allocation for the table fails, nothing is left open");

    for (const DiskKind& each : kKinds) {
        kind = each;
        AddDisk(kind, {{kStart, 4 * kMiB}, {8 * kMiB, 8 * kMiB}});
        // The volume has the first number, so that it is found at once.
        machine.SetVolumeNumber(*machine.FindVolume(0, kStart), 1);
        const std::shared_ptr<machine::Volume> volume = machine.volumes.Find(0, kStart);
        const uint64_t pairs =
            Sweep([this] { return Delete(kStart); },
                  [](const CallRecord& call, const Before& before, FaultMode mode) {
                      return before.IsAboutDrive() ? OwedByDrive(call, mode, 0) : 0;
                  },
                  [&](int32_t status) {
                      EXPECT_EQ(!volume->Opens().IsGuarded(), Succeeded({.code = 0x90020}) > 0);
                      EXPECT_TRUE(volume->IsPresent() || status == 0);
                      ExpectDriverKnows({{kStart, 4 * kMiB}, {8 * kMiB, 8 * kMiB}}, {{8 * kMiB, 8 * kMiB}});
                  });
        EXPECT_GE(pairs, 23u);
    }
}

TEST_F(PartitionSweepTest, Extending)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "what comes after the partition has grown may fail");
    SHOWS(KkExtendPartition, KK_STATUS_NO_MEMORY,
          "whichever allocation for the disk fails, the partition keeps its size");
    SHOWS(KkExtendPartition, KK_STATUS_BUFFER_TOO_SMALL, "the disk does not tell its size");

    for (const DiskKind& each : kKinds) {
        kind = each;
        AddDisk(kind, {{kStart, 4 * kMiB}});
        machine.SetVolumeNumber(*machine.FindVolume(0, kStart), 1);
        const uint64_t pairs =
            Sweep([this] { return Extend(kStart, 6 * kMiB); },
                  [](const CallRecord& call, const Before& before, FaultMode mode) {
                      return before.IsAboutDrive() ? OwedByDrive(call, mode, KK_STATUS_BUFFER_TOO_SMALL) : 0;
                  },
                  [this](int32_t status) {
                      EXPECT_EQ(status == 0, Succeeded({.code = 0x7C0D0}) == 1);
                      EXPECT_EQ(Partitions(), (std::vector<Place>{{kStart, status == 0 ? 6 * kMiB : 4 * kMiB}}));
                  });
        EXPECT_GE(pairs, 18u);
    }
}

int32_t OwedByShrinking(const CallRecord& call, const Before& before, FaultMode mode)
{
    if (before.IsAboutDrive()) {
        // The second look at the layout may fail.
        const bool secondLook = before.volumeOpenedToWrite && !before.driveOpenedToWrite;
        const bool opensToWrite = call.kind == CallKind::CreateFile && (call.access & machine::kFileWriteData) != 0;
        return secondLook && !opensToWrite ? 0 : OwedByDrive(call, mode, 0);
    }
    // The volume's letter is looked for before and after, and the letter's loss is no failure.
    if (!before.IsAboutVolume() || before.driveOpenedToWrite || IsRequest(call, 0x90064)) {
        return 0;
    }
    const bool opensToWrite = call.kind == CallKind::CreateFile && (call.access & machine::kFileWriteData) != 0;
    return before.volumeOpenedToWrite || opensToWrite ? OwnStatus(call) : KK_STATUS_INVALID_PARAMETER;
}

TEST_F(PartitionSweepTest, Shrinking)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS,
          "what concerns the letter, the second look or telling the system may fail");
    SHOWS(KkShrinkPartition, KK_STATUS_NO_MEMORY,
          "whichever allocation fails, the table never shrinks before the file system");
    SHOWS(KkShrinkPartition, KK_STATUS_INVALID_PARAMETER, "the volume is not found because of a call that fails");

    for (const DiskKind& each : kKinds) {
        kind = each;
        AddDisk(kind, {{kStart, 8 * kMiB}});
        machine::Volume& volume = *machine.FindVolume(0, kStart);
        machine.SetVolumeNumber(volume, 1);
        machine.AssignLetter(volume, u'S');
        machine::Volumes::LoseLetterOnRescan(volume);
        const uint64_t pairs = Sweep([this] { return Shrink(kStart, 2 * kMiB); }, OwedByShrinking,
                                     [&](int32_t status) {
                                         const size_t asked = Succeeded({.code = 0x901B0});
                                         EXPECT_TRUE(asked == 2 || status != 0)
                                             << "the table never shrinks before the file system";
                                         EXPECT_TRUE(asked == 2 || Succeeded({.kind = CallKind::WriteFile}) == 0);
                                         ExpectDriverKnows({{kStart, 8 * kMiB}}, {{kStart, 2 * kMiB}});
                                         const bool lost = Succeeded({.code = 0x70140}) > 0;
                                         const bool regained = Succeeded({.name = "SetVolumeMountPointW"}) > 0;
                                         EXPECT_EQ(volume.Letter().has_value(), !lost || regained);
                                     });
        EXPECT_GE(pairs, 42u);
    }
}

}  // namespace
