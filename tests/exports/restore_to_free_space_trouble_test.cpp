#include "exports/support/restore_test.h"
#include "exports/support/table_on_disk.h"

// What KkRestoreToFreeSpace takes for the limits of a disk whose reads do not do what they are asked for.

namespace {

using machine::CallKind;

class RestoreToFreeSpaceTroubleTest : public RestoreTest {
protected:
    static constexpr uint64_t kSize = 64 * kMiB;
    static constexpr uint64_t kStart = 40 * kMiB;
    static constexpr uint64_t kUsableEnd = kSize - 33 * 512;
    static constexpr uint64_t kFieldsOfHeader = 96;

    RestoreToFreeSpaceTroubleTest()
    {
        MakeImage(kSmallGpt, {{kMiB, kMiB}}, 4 * kMiB);
        AddTarget(kSmallGpt, std::vector<Place>{}, kSize);
    }

    Place PlaceRestoredTo()
    {
        EXPECT_EQ(RestoreToFreeSpace(1, kStart, UINT64_MAX), 0);
        return ReadSlots(Target(), kSmallGpt).at(0).value_or(Place{});
    }

    const machine::CallPattern diskReads_ = {.kind = CallKind::ReadFile, .object = "PhysicalDrive0"};
};

TEST_F(RestoreToFreeSpaceTroubleTest, AHeaderThatArrivesInTwoReadsLimits)
{
    machine.faults.Shorten(diskReads_, 1, kFieldsOfHeader);

    EXPECT_EQ(PlaceRestoredTo(), (Place{kStart, kUsableEnd - kStart}));
}

TEST_F(RestoreToFreeSpaceTroubleTest, AHeaderWhoseReadFailsLimitsNothingThoughItsFieldsHaveArrived)
{
    machine.faults.Shorten(diskReads_, 1, kFieldsOfHeader);
    machine.faults.Fail(diskReads_, 2, 0xC0000185);

    EXPECT_EQ(PlaceRestoredTo(), (Place{kStart, kSize - kStart}));
}

}  // namespace
