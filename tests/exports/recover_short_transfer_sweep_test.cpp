#include "exports/support/recover_test.h"
#include "exports/support/short_transfers.h"

// A recovery whose reads and writes move fewer bytes than they were asked to.

namespace {

class RecoverShortTransferSweepTest : public RecoverTest {
protected:
    static constexpr uint64_t kTargetSize = 2 * kMiB;

    RecoverShortTransferSweepTest()
    {
        AddFreshTarget();
        MakeImage(2 * kTargetSize);
    }

    void AddFreshTarget()
    {
        // Each recovery makes a volume of its overlay, and few numbers are looked at.
        machine.CountVolumesFrom(1);
        AddTarget(kTargetSize);
    }

    void ReplaceTarget()
    {
        machine.RemoveDisk(0);
        AddFreshTarget();
    }

    std::vector<uint8_t> TargetDisk() const { return machine.FindDisk(0)->ReadBytes(0, kTargetStart + kTargetSize); }
};

TEST_F(RecoverShortTransferSweepTest, ASmallerPartition)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS,
          "transfers that move fewer bytes than asked are continued, and the target is the same");

    const uint64_t cut = SweepShortTransfers(machine, {.prepare = [this] { ReplaceTarget(); },
                                                       .run = [this] { return Recover(); },
                                                       .result = [this] { return TargetDisk(); }});

    EXPECT_GT(cut, 100u);
}

}  // namespace
