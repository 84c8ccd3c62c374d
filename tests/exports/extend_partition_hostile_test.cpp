#include <variant>

#include "exports/support/partition_edit_test.h"

// Numbers that no real disk has. The driver is not asked for what cannot be meant.

namespace {

constexpr uint64_t kHighBit = uint64_t{1} << 63;

class ExtendPartitionHostileTest : public PartitionEditTest {
protected:
    /// A disk whose driver tells of these partitions; growing them does nothing and succeeds.
    void Pretend(const std::vector<Place>& places, kk::WirePartitionStyle style = kk::WirePartitionStyle::Mbr)
    {
        AddDisk(kSmallMbr, {});
        LayoutAnswer layout(style);
        for (const Place& place : places) {
            layout.Add(1, static_cast<int64_t>(place.start), static_cast<int64_t>(place.length)).mbr.partitionType = 7;
        }
        PretendLayout(layout);
        machine.OnControl({.code = 0x7C0D0}, [](const machine::CallRecord&, const machine::ControlRequest&) {
            return std::optional(machine::ControlAnswer{});
        });
    }

    /// How many bytes the driver was asked for, or the status when it was not asked.
    using Outcome = std::variant<uint64_t, int32_t>;
    Outcome Asked(uint64_t start, uint64_t newSize)
    {
        const int32_t status = Extend(start, newSize);
        if (status != 0) {
            EXPECT_EQ(machine.journal.Count({.code = 0x7C0D0}), 0u);
            return status;
        }
        return SentWith(0x7C0D0).at(1);
    }

    static Outcome Bytes(uint64_t bytes) { return bytes; }
    static Outcome Refused(int32_t status) { return status; }
};

TEST_F(ExtendPartitionHostileTest, SizesNearTheLargestNumberDoNotFit)
{
    SHOWS(KkExtendPartition, KK_STATUS_BUFFER_TOO_SMALL, "sizes near the largest number do not fit");

    for (const DiskKind& kind : kDiskKinds) {
        AddDisk(kind, {{kMiB, 8 * kMiB}});
        for (const uint64_t size : {UINT64_MAX, UINT64_MAX - 511, UINT64_MAX - 4096, kHighBit, kHighBit - 1}) {
            EXPECT_EQ(Extend(kMiB, size), KK_STATUS_BUFFER_TOO_SMALL) << kind << ", " << size;
            EXPECT_TRUE(written.empty());
        }
    }
}

TEST_F(ExtendPartitionHostileTest, APartitionAtOrBehindTheEndOfTheDiskHasOnlyItsOwnRoom)
{
    SHOWS(KkExtendPartition, KK_STATUS_INVALID_PARAMETER, "a partition at or behind the disk's end has nothing to add");
    SHOWS(KkExtendPartition, KK_STATUS_BUFFER_TOO_SMALL,
          "a partition at or behind the disk's end has only its own room");

    Pretend({{kDiskSize, 4096}, {kDiskSize + kMiB, 4096}});

    EXPECT_EQ(Asked(kDiskSize, 0), Refused(KK_STATUS_INVALID_PARAMETER));
    EXPECT_EQ(Asked(kDiskSize, 4096), Refused(KK_STATUS_INVALID_PARAMETER));
    EXPECT_EQ(Asked(kDiskSize, 4097), Refused(KK_STATUS_BUFFER_TOO_SMALL));
    EXPECT_EQ(Asked(kDiskSize + kMiB, 4097), Refused(KK_STATUS_BUFFER_TOO_SMALL));
}

TEST_F(ExtendPartitionHostileTest, ItsOwnRoomRoundedDownIsNotAboveItsLength)
{
    SHOWS(KkExtendPartition, KK_STATUS_INVALID_PARAMETER, "its own room, rounded down, is not above its length");
    SHOWS(KkExtendPartition, KK_STATUS_BUFFER_TOO_SMALL,
          "a size rounded up to whole sectors does not fit into a length that is none");

    Pretend({{kDiskSize, 4097}});

    EXPECT_EQ(Asked(kDiskSize, 0), Refused(KK_STATUS_INVALID_PARAMETER));
    EXPECT_EQ(Asked(kDiskSize, 4097), Refused(KK_STATUS_BUFFER_TOO_SMALL)) << "4608 bytes do not fit into 4097";
}

TEST_F(ExtendPartitionHostileTest, StartsAndLengthsBeyondAllDisks)
{
    SHOWS(KkExtendPartition, KK_STATUS_INVALID_PARAMETER, "starts and lengths beyond all disks have nothing to add");
    SHOWS(KkExtendPartition, KK_STATUS_BUFFER_TOO_SMALL, "starts and lengths beyond all disks have no room");
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "a partition of no length can grow");

    Pretend({{kHighBit, kHighBit}, {UINT64_MAX, UINT64_MAX}, {kMiB, UINT64_MAX}, {2 * kMiB, 0}});

    EXPECT_EQ(Asked(kHighBit, 0), Refused(KK_STATUS_INVALID_PARAMETER));
    EXPECT_EQ(Asked(kHighBit, kHighBit + 1), Refused(KK_STATUS_BUFFER_TOO_SMALL));
    EXPECT_EQ(Asked(UINT64_MAX, 0), Refused(KK_STATUS_INVALID_PARAMETER));
    EXPECT_EQ(Asked(kMiB, 0), Refused(KK_STATUS_INVALID_PARAMETER));
    EXPECT_EQ(Asked(2 * kMiB, 1), Bytes(512));
}

TEST_F(ExtendPartitionHostileTest, ADiskWithoutASizeHasNoRoom)
{
    SHOWS(KkExtendPartition, KK_STATUS_INVALID_PARAMETER,
          "on a disk that does not tell its size there is nothing to add");
    SHOWS(KkExtendPartition, KK_STATUS_BUFFER_TOO_SMALL, "on a disk that does not tell its size there is no room");

    AddDisk(kSmallGpt, {{kMiB, 8 * kMiB}});
    TheDisk().behaviour.geometryFails = true;

    EXPECT_EQ(Extend(kMiB, 0), KK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(Extend(kMiB, 9 * kMiB), KK_STATUS_BUFFER_TOO_SMALL);
    EXPECT_TRUE(written.empty());
}

TEST_F(ExtendPartitionHostileTest, ADiskWithoutASizeHasNoRoomBeforeTheNextPartitionEither)
{
    SHOWS(KkExtendPartition, KK_STATUS_INVALID_PARAMETER,
          "without the disk's size there is nothing to add before the next partition either");
    SHOWS(KkExtendPartition, KK_STATUS_BUFFER_TOO_SMALL,
          "without the disk's size there is no room before the next partition either");

    Pretend({{kMiB, 8 * kMiB}, {16 * kMiB, kMiB}});
    PretendGeometry(0, 512);

    EXPECT_EQ(Asked(kMiB, 0), Refused(KK_STATUS_INVALID_PARAMETER));
    EXPECT_EQ(Asked(kMiB, 9 * kMiB), Refused(KK_STATUS_BUFFER_TOO_SMALL));
}

TEST_F(ExtendPartitionHostileTest, ADiskNoLongerThanTheReserveKeepsAllOfIt)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "a GPT disk no longer than its reserve keeps none of it free");
    SHOWS(KkExtendPartition, KK_STATUS_INVALID_PARAMETER,
          "a GPT disk barely longer than its reserve has nothing to add");

    constexpr uint64_t kReserve = 34 * 512;
    for (const auto& [diskSize, room] : {std::pair<uint64_t, uint64_t>{kReserve, kReserve - 512},
                                         {kReserve + 512, 0},
                                         {kReserve + 1536, 1024},
                                         {4096, 3584}}) {
        Pretend({{512, 512}}, kk::WirePartitionStyle::Gpt);
        PretendGeometry(diskSize, 512);

        EXPECT_EQ(Asked(512, 0), room == 0 ? Refused(KK_STATUS_INVALID_PARAMETER) : Bytes(room - 512)) << diskSize;
    }
}

TEST_F(ExtendPartitionHostileTest, ANegativeDiskSizeIsAVeryLargeOne)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "a negative disk size is a very large one");

    Pretend({{kMiB, 8 * kMiB}});
    PretendGeometry(UINT64_MAX, 512);

    EXPECT_EQ(Asked(kMiB, kHighBit), Bytes(kHighBit - 8 * kMiB));
}

TEST_F(ExtendPartitionHostileTest, SectorSizesOfAllKinds)
{
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS,
          "sector sizes of 0, 1, 7 and 520 bytes are rounded to as they are told");
    SHOWS(KkExtendPartition, KK_STATUS_BUFFER_TOO_SMALL, "a size rounded up to sectors of nearly 4 GiB does not fit");
    SHOWS(KkExtendPartition, KK_STATUS_INVALID_PARAMETER, "with sectors of nearly 4 GiB there is nothing to add");

    struct Case {
        uint32_t sectorSize;
        uint64_t grows;  // by so many bytes, asked for one more than 8 MiB
    };
    for (const Case& each : {Case{0, 512}, Case{1, 1}, Case{7, 8 * kMiB / 7 * 7 + 7 - 8 * kMiB}, Case{520, 32}}) {
        Pretend({{kMiB, 8 * kMiB}});
        PretendGeometry(kDiskSize, each.sectorSize);

        EXPECT_EQ(Asked(kMiB, 8 * kMiB + 1), Bytes(each.grows)) << each.sectorSize;
    }
    Pretend({{kMiB, 8 * kMiB}});
    PretendGeometry(kDiskSize, UINT32_MAX);
    EXPECT_EQ(Asked(kMiB, 8 * kMiB + 1), Refused(KK_STATUS_BUFFER_TOO_SMALL));
    EXPECT_EQ(Asked(kMiB, 0), Refused(KK_STATUS_INVALID_PARAMETER)) << "no whole sector fits";
}

}  // namespace
