// Reads and writes of an MBR's edit, sectors of odd sizes, damage and failing calls.

#include "partition/mbr_edit_fixture.h"
#include "support/sweep.h"

namespace kk {
namespace {

using Trail = std::vector<std::string>;

class MbrTroubleTest : public MbrEditTest {
protected:
    void ExpectCorrupt()
    {
        const std::vector<uint8_t> before = WholeDisk();
        EXPECT_EQ(Edit(Adding(2048, 100)), Status(0xC000014C));
        EXPECT_EQ(Steps(), Trail{"read 0+" + std::to_string(sectorSize)});
        EXPECT_EQ(WholeDisk(), before);
        EXPECT_EQ(number, kUntouched);
    }
};

TEST_F(MbrTroubleTest, TheSectorIsReadWrittenAndFlushed)
{
    for (const MbrEdit& edit : {Adding(2048, 100), Resizing(100, 5), Removing(100)}) {
        UseMbr({7});

        EXPECT_EQ(Edit(edit), KK_STATUS_SUCCESS);
        EXPECT_EQ(Steps(), (Trail{"read 0+512", "write 0+512", "flush"}));
        EXPECT_EQ(machine.heap.Sizes(), std::vector<uint64_t>{512});
        EXPECT_EQ(machine.heap.LiveBlocks(), 1u);  // the target itself
    }
}

TEST_F(MbrTroubleTest, LargerSectorsAreWrittenBackWhole)
{
    for (const uint32_t bytes : {520u, 4096u}) {
        UseMbr({7}, bytes);
        const std::vector<uint8_t> expected = DiskWith(0, std::vector<uint8_t>(16));

        EXPECT_EQ(Edit(Removing(100)), KK_STATUS_SUCCESS);
        EXPECT_EQ(WholeDisk(), expected);
        EXPECT_EQ(Steps().at(0), "read 0+" + std::to_string(bytes));
        EXPECT_EQ(Steps().at(1), "write 0+" + std::to_string(bytes));
        EXPECT_EQ(machine.heap.Sizes(), std::vector<uint64_t>{bytes});
    }
}

TEST_F(MbrTroubleTest, ASectorSizeOfZeroMeans512)
{
    UseMbr({7}, 0);

    EXPECT_EQ(Edit(Removing(100)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Steps(), (Trail{"read 0+512", "write 0+512", "flush"}));
}

TEST_F(MbrTroubleTest, ASectorThatEndsBeforeTheSignatureHasNone)
{
    for (const uint32_t bytes : {1u, 64u, 511u}) {
        UseMbr({7}, bytes);

        ExpectCorrupt();
        EXPECT_EQ(machine.heap.Sizes(), std::vector<uint64_t>{512});
    }
}

TEST_F(MbrTroubleTest, BothBytesOfTheSignatureCount)
{
    for (const auto& signature : {std::vector<uint8_t>{0x55, 0xAB}, std::vector<uint8_t>{0x54, 0xAA},
                                  std::vector<uint8_t>{0xAA, 0x55}, std::vector<uint8_t>{0, 0}}) {
        UseMbr({7});
        ASSERT_TRUE(storage->Write(510, signature));

        ExpectCorrupt();
    }
}

TEST_F(MbrTroubleTest, TheSignatureLiesAt510InLargerSectorsToo)
{
    UseMbr({7}, 4096);
    ASSERT_TRUE(storage->Write(4094, Bytes(510, 2)));
    ASSERT_TRUE(storage->Write(510, std::vector<uint8_t>(2)));

    ExpectCorrupt();
}

TEST_F(MbrTroubleTest, DamageIsToldBeforeAFullTable)
{
    UseMbr({7, 7, 7, 7});
    ASSERT_TRUE(storage->Write(511, std::vector<uint8_t>(1)));

    ExpectCorrupt();
}

TEST_F(MbrTroubleTest, AFailingReadIsReported)
{
    UseMbr({7});
    machine.faults.Fail({.kind = machine::CallKind::ReadFile}, 1, 0xC000009C);

    EXPECT_EQ(Edit(Removing(100)), Status(0xC000009C));
    EXPECT_EQ(Steps(), Trail{"read 0+512"});
    EXPECT_EQ(number, kUntouched);
}

TEST_F(MbrTroubleTest, AFailingWriteIsReportedWithoutAFlushAndTheSlotIsKnown)
{
    for (const MbrEdit& edit : {Adding(2048, 100), Resizing(200, 5), Removing(200)}) {
        UseMbr({7, 7});
        const std::vector<uint8_t> before = WholeDisk();
        machine.faults.Clear();
        FailWrite(1, 0xC00000A2);

        EXPECT_EQ(Edit(edit), Status(0xC00000A2));
        EXPECT_EQ(Steps(), (Trail{"read 0+512", "write 0+512"}));
        EXPECT_EQ(WholeDisk(), before);
        EXPECT_EQ(number, edit.mode == TableEditMode::Add ? 3u : 2u);
    }
}

TEST_F(MbrTroubleTest, AFailingFlushIsIgnored)
{
    UseMbr({7});
    device->flushStatus = Status(0xC0000185);

    EXPECT_EQ(Edit(Removing(100)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Steps().back(), "flush");
}

TEST_F(MbrTroubleTest, WithoutMemoryNothingIsRead)
{
    UseMbr({7});
    machine.faults.Fail({.kind = machine::CallKind::Allocate}, 1, 0);
    EXPECT_EQ(Edit(Removing(100)), Status(0xC0000017));
    EXPECT_TRUE(Steps().empty());

    machine.faults.Clear();
    sectorSize = 0xFFFFFFFF;
    EXPECT_EQ(Edit(Removing(100)), Status(0xC0000017));
    EXPECT_EQ(machine.journal.First({.kind = machine::CallKind::Allocate})->length, 0xFFFFFFFFu);
    EXPECT_TRUE(Steps().empty());
}

TEST_F(MbrTroubleTest, EveryCallButTheFlushMustSucceed)
{
    UseMbr({7});
    for (const FaultMode mode : {FaultMode::OneCall, FaultMode::ThatCallAndAllLater}) {
        const auto edit = [this] {
            const KK_STATUS status = Edit(Adding(2048, 100));
            target.Reset();
            return status;
        };
        const uint64_t calls =
            SweepFailingCalls(machine, mode, edit, [](const machine::CallRecord* failed, int32_t status) {
                const bool mayFail = failed == nullptr || failed->kind == machine::CallKind::Flush;
                EXPECT_EQ(status == KK_STATUS_SUCCESS, mayFail);
            });

        EXPECT_EQ(calls, 4u);
    }
}

}  // namespace
}  // namespace kk
