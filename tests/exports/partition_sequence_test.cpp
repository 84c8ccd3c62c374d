#include <algorithm>
#include <cstdlib>
#include <random>

#include "exports/support/partition_edit_test.h"
#include "exports/support/partition_model.h"
#include "exports/support/table_judges.h"
#include "machine/ntfs_reader.h"

// Random sequences of edits on random disks, each step against a model of the table and other people's tools. A failure
// prints two environment variables that repeat its sequence; with them set, each test runs that sequence alone. A large
// KK_STEPS runs longer.

namespace {

constexpr uint64_t kStepsOfADisk = 100;
constexpr uint64_t kStepsBetweenLooksAtFileSystems = 50;

std::optional<uint64_t> Ordered(const char* variable)
{
    const char* const text = std::getenv(variable);
    return text == nullptr ? std::nullopt : std::optional<uint64_t>(std::strtoull(text, nullptr, 0));
}

class PartitionSequenceTest : public PartitionEditTest {
protected:
    PartitionSequenceTest() { machine.journal.SetRecording(false); }

    /// Sequences on disks of a kind, `steps` in all unless ordered otherwise.
    void Run(const DiskKind& diskKind, uint64_t steps, bool withFileSystems = false)
    {
        kind = diskKind;
        formats = withFileSystems;
        steps = Ordered("KK_STEPS").value_or(library->IsSanitized() ? steps : steps / 4);
        const bool alone = Ordered("KK_STEPS").has_value();
        for (uint64_t seed = Ordered("KK_SEED").value_or(1); steps > 0 && !HasFailure(); ++seed) {
            const uint64_t now = alone ? steps : std::min(steps, kStepsOfADisk);
            RunOnOneDisk(seed, now);
            steps -= now;
        }
    }

private:
    void RunOnOneDisk(uint64_t seed, uint64_t steps)
    {
        random.seed(seed);
        AddDisk(kind, {}, ((formats ? 48 : 16) + Below(80)) * kMiB + Below(2) * kind.sectorSize);
        written.clear();
        model.emplace(kind, TheDisk().Size());
        for (uint64_t step = 1; step <= steps && !HasFailure(); ++step) {
            SCOPED_TRACE(testing::Message()
                         << "repeat with KK_SEED=" << seed << " KK_STEPS=" << step << " on " << kind);
            Step();
            // A table that was not written is the one that was judged before.
            if (!written.empty()) {
                EXPECT_EQ(ComplaintAboutTable(TheDisk(), kind), "") << testing::PrintToString(model->Partitions());
            }
            ExpectTheDiskToBeAsTheModelSays();
            if (step % kStepsBetweenLooksAtFileSystems == 0 || step == steps) {
                JudgeFileSystems();
            }
        }
    }

    void Step()
    {
        machine.clock.Advance(1);
        touched = {};
        switch (Below(formats ? 5 : 4)) {
        case 0:
            return StepCreate();
        case 1:
            return Below(2) == 0 ? StepDelete() : StepCreate();
        case 2:
            return StepExtend();
        case 3:
            return StepShrink();
        default:
            return StepFormat();
        }
    }

    void StepCreate()
    {
        const std::vector<Place> gaps = model->Gaps();
        Place region = gaps.empty() || Below(4) == 0
                           ? Place{Near(Below(TheDisk().Size())), Near(Below(TheDisk().Size()))}
                           : gaps[Below(gaps.size())];
        if (Below(3) == 0) {
            region = {Near(region.start), Near(region.length)};
        }
        const uint64_t part = region.length / (1 + Below(4));
        const uint64_t size = Below(4) == 0 ? 0 : Below(3) == 0 ? Near(part) : 1 + Below(std::max<uint64_t>(part, 1));
        SCOPED_TRACE(testing::Message() << "create in " << region << ", size " << size);
        uint64_t start = kNotWritten;
        const int32_t owed = model->Create(region, size, start);

        EXPECT_EQ(Create(region.start, region.length, size), owed);
        EXPECT_EQ(created, start);
        if (owed == 0) {
            RecycleVolumeNumber(start);
            ForgetFileSystemAt(start);
        }
    }

    /// The first sector of a file system that was there once, or its copy, would be taken for one.
    void ForgetFileSystemAt(uint64_t start)
    {
        const std::vector<Place> byTheCall = written;
        TheDisk().WriteBytes(start, std::vector<uint8_t>(kind.sectorSize));
        written = byTheCall;
    }

    void StepDelete()
    {
        const Place place = AnyPartition();
        const uint64_t start = Below(8) == 0 ? Near(place.start) : place.start;
        SCOPED_TRACE(testing::Message() << "delete at " << start);
        const int32_t owed = model->Delete(start);

        EXPECT_EQ(Delete(start), owed);
    }

    void StepExtend()
    {
        const Place place = AnyPartition();
        const uint64_t room = model->UsableEnd() - std::min(model->UsableEnd(), place.start);
        const uint64_t more = place.length + Below(4 * kMiB);
        const uint64_t size = Below(8) == 0 ? 0 : Below(4) == 0 ? Near(room) : Below(2) == 0 ? Near(more) : more;
        SCOPED_TRACE(testing::Message() << "extend " << place << " to " << size);
        touched = place.start;
        const uint64_t fileSystem = FileSystemBytes(place.start);
        const int32_t owed = model->Extend(place.start, size);

        EXPECT_EQ(Extend(place.start, size), owed);
        if (fileSystem != 0 && owed == 0) {
            EXPECT_LT(LengthAt(place.start) - FileSystemBytes(place.start), ClusterSize(place.start));
        }
    }

    void StepShrink()
    {
        const Place place = AnyPartition();
        const uint64_t fileSystem = FileSystemBytes(place.start);
        // What a file system of some length needs for itself is not for this test to know.
        const uint64_t least = fileSystem == 0 ? 0 : 10 * kMiB;
        const uint64_t below = least + Below(std::max(place.length, least + 1) - least);
        const uint64_t size = fileSystem != 0 || Below(4) != 0 ? below : Near(place.length);
        SCOPED_TRACE(testing::Message() << "shrink " << place << " to " << size);
        touched = place.start;
        const int32_t owed = model->Shrink(place.start, size, {.fileSystemBytes = fileSystem});

        EXPECT_EQ(Shrink(place.start, size), owed);
        if (fileSystem != 0 && owed == 0) {
            EXPECT_EQ(FileSystemBytes(place.start), (size + kMiB - 1) / kMiB * kMiB);
        }
    }

    void StepFormat()
    {
        const Place place = AnyPartition();
        if (place.length < 12 * kMiB) {
            return;
        }
        SCOPED_TRACE(testing::Message() << "format " << place);
        touched = place.start;
        EXPECT_EQ(api.formatPartition(0, place.start, u"NTFS", nullptr, 1), 0);
        EXPECT_NE(FileSystemBytes(place.start), 0u);
    }

    void ExpectTheDiskToBeAsTheModelSays()
    {
        EXPECT_EQ(ReadSlots(TheDisk(), kind), model->Slots());
        EXPECT_EQ(Partitions(), model->Partitions());
        for (const Place& place : model->Partitions()) {
            const machine::Volume* const volume = machine.FindVolume(0, place.start);
            ASSERT_NE(volume, nullptr) << place;
            EXPECT_EQ(volume->Length(), place.length);
        }
        for (const Place& place : written) {
            EXPECT_TRUE(IsInTheTable(place) || IsInTouchedPartition(place)) << place << " were written";
        }
        written.clear();
    }

    void JudgeFileSystems()
    {
        for (const Place& place : model->Partitions()) {
            if (const uint64_t length = FileSystemBytes(place.start); length != 0) {
                EXPECT_EQ(ComplaintAboutNtfs(TheDisk(), {place.start, length}), "");
            }
        }
    }

    bool IsInTheTable(const Place& place) const
    {
        const TableSectors sectors(kind, TheDisk().Size());
        for (const Place& part :
             {sectors.primaryHeader, sectors.primaryArray, sectors.backupArray, sectors.backupHeader}) {
            if (place.start >= part.start && place.start + place.length <= part.start + part.length) {
                return true;
            }
        }
        return false;
    }
    /// File systems that are made or change their size write into their partition, as it is or was.
    bool IsInTouchedPartition(const Place& place) const
    {
        return formats && touched && place.start >= *touched &&
               std::ranges::none_of(model->Partitions(), [&](const Place& other) {
                   return other.start > *touched && other.start < place.start + place.length;
               });
    }

    /// With the sector that holds the copy of the boot sector; 0 without NTFS.
    uint64_t FileSystemBytes(uint64_t start) const
    {
        machine::Volume* const volume = formats ? machine.FindVolume(0, start) : nullptr;
        const auto geometry = volume == nullptr ? std::nullopt : machine::NtfsReader::ReadGeometry(*volume);
        return geometry ? (geometry->totalSectors + 1) * geometry->bytesPerSector : 0;
    }
    uint64_t ClusterSize(uint64_t start) const
    {
        return machine::NtfsReader::ReadGeometry(*machine.FindVolume(0, start))->bytesPerCluster;
    }
    uint64_t LengthAt(uint64_t start) const { return machine.FindVolume(0, start)->Length(); }

    /// The system counts volumes up without end, and the library looks for the first 127.
    void RecycleVolumeNumber(uint64_t start)
    {
        uint32_t number = 1;
        const auto isTaken = [&](const auto& volume) { return volume->Number() == number; };
        while (std::ranges::any_of(machine.volumes.All(), isTaken)) {
            ++number;
        }
        machine.SetVolumeNumber(*machine.FindVolume(0, start), number);
    }

    uint64_t Below(uint64_t limit) { return random() % limit; }
    /// The number itself or one beside it, or one of those where arithmetic goes wrong.
    uint64_t Near(uint64_t number)
    {
        const uint64_t steps[] = {0, 1, UINT64_MAX, kind.sectorSize, uint64_t{0} - kind.sectorSize, kMiB};
        const uint64_t ends[] = {0, 1, UINT64_MAX, UINT64_MAX - kMiB + 1, uint64_t{1} << 63, uint64_t{1} << 32};
        return Below(6) == 0 ? ends[Below(std::size(ends))] : number + steps[Below(std::size(steps))];
    }
    /// A place where nothing is when there is none. Long ones, which have room for a file system, come more often where
    /// that matters.
    Place AnyPartition()
    {
        const std::vector<Place> all = model->Partitions();
        if (all.empty()) {
            return {Near(kMiB), kMiB};
        }
        return formats && Below(3) != 0 ? *std::ranges::max_element(all, {}, &Place::length) : all[Below(all.size())];
    }

    DiskKind kind;
    bool formats = false;
    std::mt19937_64 random;
    std::optional<PartitionModel> model;
    std::optional<uint64_t> touched;  // the partition whose contents the step may change
};

TEST_F(PartitionSequenceTest, OnGptDisksWithSmallSectors)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "random sequences of edits on GPT disks, as a model and other tools have it");
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS,
          "random sequences of edits on GPT disks, as a model and other tools have it");
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS,
          "random sequences of edits on GPT disks, as a model and other tools have it");
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS,
          "random sequences of edits on GPT disks, as a model and other tools have it");

    Run(kSmallGpt, 1200);
}

TEST_F(PartitionSequenceTest, OnGptDisksWithLargeSectors)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "random sequences of edits on GPT disks with sectors of 4096 bytes, likewise");
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS,
          "random sequences of edits on GPT disks with sectors of 4096 bytes, likewise");
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS,
          "random sequences of edits on GPT disks with sectors of 4096 bytes, likewise");
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS,
          "random sequences of edits on GPT disks with sectors of 4096 bytes, likewise");

    Run(kLargeGpt, 600);
}

TEST_F(PartitionSequenceTest, OnMbrDisksWithSmallSectors)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "random sequences of edits on MBR disks, as a model and other tools have it");
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS,
          "random sequences of edits on MBR disks, as a model and other tools have it");
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS,
          "random sequences of edits on MBR disks, as a model and other tools have it");
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS,
          "random sequences of edits on MBR disks, as a model and other tools have it");

    Run(kSmallMbr, 1200);
}

TEST_F(PartitionSequenceTest, OnMbrDisksWithLargeSectors)
{
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS,
          "random sequences of edits on MBR disks with sectors of 4096 bytes, likewise");
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS,
          "random sequences of edits on MBR disks with sectors of 4096 bytes, likewise");
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS,
          "random sequences of edits on MBR disks with sectors of 4096 bytes, likewise");
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS,
          "random sequences of edits on MBR disks with sectors of 4096 bytes, likewise");

    Run(kLargeMbr, 600);
}

TEST_F(PartitionSequenceTest, WithFileSystemsOnAGptDisk)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS,
          "random sequences with NTFS: it grows with its partition, as NTFS tools have it");
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS,
          "random sequences with NTFS: it shrinks with its partition, as NTFS tools have it");
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "random sequences of formats and edits leave sound file systems");

    Run(kSmallGpt, 400, true);
}

TEST_F(PartitionSequenceTest, WithFileSystemsOnAnMbrDiskWithLargeSectors)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "random sequences with NTFS on an MBR disk with sectors of 4096 bytes");
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "random sequences with NTFS on an MBR disk with sectors of 4096 bytes");
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS,
          "random sequences of formats and edits on an MBR disk with sectors of 4096 bytes");

    Run(kLargeMbr, 200, true);
}

}  // namespace
