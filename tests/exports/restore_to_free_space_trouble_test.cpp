#include "exports/support/restore_test.h"
#include "exports/support/table_on_disk.h"

// What KkRestoreToFreeSpace takes for the limits of a disk whose header does not arrive in one read.

namespace {

using machine::CallKind;

/// A disk that moves sectors of 512 bytes and reports larger ones, so that a read of one can end in its midst.
class RestoreToFreeSpaceTroubleTest : public RestoreTest {
protected:
    static constexpr uint32_t kReportedSector = 4096;
    static constexpr uint64_t kSize = 16 * kMiB;
    static constexpr uint64_t kStart = 8 * kMiB;
    static constexpr uint64_t kUsableEnd = kSize - 5 * kReportedSector;

    RestoreToFreeSpaceTroubleTest()
    {
        MakeImage(kSmallGpt, {{kMiB, kMiB}}, 4 * kMiB);
        AddTarget(kSmallGpt, {}, kSize);
        machine::Disk& other = machine.AddDisk(kSize, {.sectorSize = kReportedSector, .number = 1}).Gpt({});
        Target().WriteBytes(kReportedSector, other.ReadBytes(kReportedSector, kSize - kReportedSector));
        machine.OnControl({.object = "PhysicalDrive0", .code = 0x700A0},
                          [](const machine::CallRecord&, const machine::ControlRequest&) {
                              kk::DiskGeometryEx geometry = {};
                              geometry.diskSize = kSize;
                              geometry.bytesPerSector = kReportedSector;
                              return std::optional(machine::ControlAnswer{.output = machine::BytesOf(geometry)});
                          });
    }

    /// Where the partition went that was given all the room behind kStart.
    Place PlaceRestoredTo()
    {
        EXPECT_EQ(RestoreToFreeSpace(1, kStart, UINT64_MAX), 0);
        const auto entry = machine::TakeRecord<machine::GptEntryRecord>(
            Target().ReadBytes(2 * kReportedSector, sizeof(machine::GptEntryRecord)));
        return {entry.firstLba * kReportedSector, (entry.lastLba - entry.firstLba + 1) * kReportedSector};
    }

    const machine::CallPattern reads_ = {.kind = CallKind::ReadFile, .object = "PhysicalDrive0"};
};

TEST_F(RestoreToFreeSpaceTroubleTest, AHeaderThatArrivesInTwoReadsLimits)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "a GPT header that arrives in two reads limits the room");

    machine.faults.Shorten(reads_, 1, 512);

    EXPECT_EQ(PlaceRestoredTo(), (Place{kStart, kUsableEnd - kStart}));
}

TEST_F(RestoreToFreeSpaceTroubleTest, AHeaderWhoseReadFailsLimitsNothingThoughItsFieldsHaveArrived)
{
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS,
          "a GPT header whose read fails limits nothing, though its first "
          "bytes had arrived");

    machine.faults.Shorten(reads_, 1, 512);
    machine.faults.Fail(reads_, 2, 0xC0000185);

    EXPECT_EQ(PlaceRestoredTo(), (Place{kStart, kSize - kStart}));
}

}  // namespace
