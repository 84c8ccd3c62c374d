// Calls that fail in the middle of an edit: what is reported, what the disk holds then, and that nothing is kept.

#include "partition/gpt_edit_fixture.h"
#include "support/sweep.h"

namespace kk {
namespace {

class GptEditFailuresTest : public GptEditTest {
protected:
    GptEditFailuresTest() { UseGpt({100}); }

    /// The disk before the edit and after each of its writes.
    std::vector<std::vector<uint8_t>> States(const GptEdit& edit)
    {
        std::vector<std::vector<uint8_t>> states = {WholeDisk()};
        const auto write = device->write;
        device->write = [&](uint64_t offset, std::span<const uint8_t> from) {
            const machine::IoResult result = write(offset, from);
            states.push_back(WholeDisk());
            return result;
        };
        EXPECT_EQ(Edit(edit), KK_STATUS_SUCCESS);
        device->write = write;
        EXPECT_TRUE(storage->Write(0, states.front()));
        return states;
    }

    void ExpectNothingKept() const
    {
        EXPECT_EQ(machine.heap.LiveBlocks(), 1u);  // the target itself
    }
};

TEST_F(GptEditFailuresTest, AFailingTransferEndsTheEditThere)
{
    for (const GptEdit& edit : {Adding(200, 300), Resizing(100, 150), Removing(100)}) {
        const auto states = States(edit);
        const std::vector<std::string> steps = Steps();
        ASSERT_EQ(steps.size(), 10u);
        size_t reads = 0;
        size_t writes = 0;
        for (size_t i = 0; i + 1 < steps.size(); ++i) {
            const bool isWrite = steps[i].starts_with("write");
            const uint32_t status = 0xC0000100 + static_cast<uint32_t>(i);
            machine.faults.Clear();
            machine.faults.Fail({.kind = isWrite ? machine::CallKind::WriteFile : machine::CallKind::ReadFile},
                                isWrite ? writes + 1 : reads + 1, status);

            EXPECT_EQ(Edit(edit), Status(status));
            EXPECT_EQ(Steps(), std::vector<std::string>(steps.begin(), steps.begin() + static_cast<ptrdiff_t>(i) + 1));
            EXPECT_EQ(WholeDisk(), states[writes]) << steps[i];
            EXPECT_EQ(number == kUntouched, i < 3) << "the slot is known before it is written";
            ExpectNothingKept();
            ++(isWrite ? writes : reads);
            ASSERT_TRUE(storage->Write(0, states.front()));
        }
        EXPECT_EQ(writes, 4u);
    }
}

TEST_F(GptEditFailuresTest, WithoutMemoryTheEditEndsThere)
{
    const auto states = States(Resizing(100, 150));
    struct Case {
        uint64_t allocation;
        size_t steps;
        size_t writes;
    };
    for (const Case& each : {Case{1, 0, 0}, Case{2, 1, 0}, Case{3, 2, 0}, Case{4, 5, 2}, Case{5, 6, 2}}) {
        machine.faults.Clear();
        machine.faults.Fail({.kind = machine::CallKind::Allocate}, each.allocation, 0);

        EXPECT_EQ(Edit(Resizing(100, 150)), Status(0xC0000017)) << each.allocation;
        EXPECT_EQ(Steps().size(), each.steps);
        EXPECT_EQ(WholeDisk(), states[each.writes]);
        ExpectNothingKept();
        ASSERT_TRUE(storage->Write(0, states.front()));
    }
}

TEST_F(GptEditFailuresTest, AWarningIsAFailure)
{
    machine.faults.Fail({.kind = machine::CallKind::WriteFile}, 2, 0x80000016);

    EXPECT_EQ(Edit(Removing(100)), Status(0x80000016));
    EXPECT_EQ(Steps().back(), "write 512+512");
}

TEST_F(GptEditFailuresTest, AnEditThatFailedAtTheBackupHeaderCanBeRepeated)
{
    const auto states = States(Resizing(100, 150));
    FailWrite(4, 0xC0000185);
    EXPECT_EQ(Edit(Resizing(100, 150)), Status(0xC0000185));
    EXPECT_NE(WholeDisk(), states.back());
    machine.faults.Clear();

    EXPECT_EQ(Edit(Resizing(100, 150)), KK_STATUS_SUCCESS);
    EXPECT_EQ(WholeDisk(), states.back());
}

TEST_F(GptEditFailuresTest, EveryCallButTheFlushMustSucceed)
{
    for (const FaultMode mode : {FaultMode::OneCall, FaultMode::ThatCallAndAllLater}) {
        const auto edit = [this] {
            const KK_STATUS status = Edit(Adding(200, 300));
            target.Reset();
            return status;
        };
        const uint64_t calls =
            SweepFailingCalls(machine, mode, edit, [](const machine::CallRecord* failed, int32_t status) {
                const bool mayFail = failed == nullptr || failed->kind == machine::CallKind::Flush;
                EXPECT_EQ(status == KK_STATUS_SUCCESS, mayFail);
            });

        EXPECT_EQ(calls, 15u);
    }
}

}  // namespace
}  // namespace kk
