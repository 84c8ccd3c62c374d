#include <string>
#include <vector>

#include "backup/json_writer.h"
#include "support/machine_test.h"

// How documents grow, and what becomes of them when memory runs out.

namespace {

using Sizes = std::vector<uint64_t>;

class JsonMemoryTest : public MachineTest {
protected:
    /// The `nth` allocation from now on fails.
    void FailAllocation(uint64_t nth) { machine.faults.Fail({.kind = machine::CallKind::Allocate}, nth, 0); }
    void FailAllocationsFrom(uint64_t nth) { machine.faults.FailFrom({.kind = machine::CallKind::Allocate}, nth, 0); }

    std::string Text()
    {
        json.Finish();
        return {reinterpret_cast<const char*>(json.Text()), json.TextLength()};
    }

    kk::JsonWriter json;
};

TEST_F(JsonMemoryTest, TheTextGrowsFromEightBytesByDoubling)
{
    json.UIntValue(1);
    EXPECT_EQ(machine.heap.Sizes(), Sizes{8});

    json.UIntValue(2345678);
    EXPECT_EQ(machine.heap.Sizes(), Sizes{8});

    json.UIntValue(9);
    EXPECT_EQ(machine.heap.Sizes(), (Sizes{8, 16}));

    json.UIntValue(1234567);
    EXPECT_EQ(machine.heap.Sizes(), (Sizes{8, 16}));

    json.UIntValue(1);
    EXPECT_EQ(machine.heap.Sizes(), (Sizes{8, 16, 32}));
    EXPECT_EQ(machine.heap.LiveBlocks(), 1u);
    EXPECT_EQ(Text(), "12345678912345671");
}

TEST_F(JsonMemoryTest, TheStackGrowsInTheSameWay)
{
    for (int i = 0; i < 8; ++i) {
        json.BeginArray();
    }
    EXPECT_EQ(machine.heap.Sizes(), (Sizes{8, 8}));

    json.BeginArray();
    EXPECT_EQ(machine.heap.Sizes(), (Sizes{8, 8, 16, 16}));

    for (int i = 0; i < 8; ++i) {
        json.BeginArray();
    }
    EXPECT_EQ(machine.heap.Sizes(), (Sizes{8, 8, 16, 16, 32, 32}));
    EXPECT_EQ(machine.heap.LiveBlocks(), 2u);
}

TEST_F(JsonMemoryTest, TheStackIsUsedAnewAfterContainersWereClosed)
{
    for (int i = 0; i < 40; ++i) {
        json.BeginArray();
        json.EndArray();
    }

    EXPECT_EQ(machine.heap.Sizes(), (Sizes{8, 8, 16, 32, 64, 128}));
}

TEST_F(JsonMemoryTest, AByteWithoutRoomIsDroppedAndTheNextTriesAgain)
{
    FailAllocation(1);

    json.StringValue("ab");

    EXPECT_EQ(Text(), "ab\"");
}

TEST_F(JsonMemoryTest, AFailingGrowthCostsOneByte)
{
    FailAllocation(2);

    json.StringValue("abcdefghij");

    EXPECT_EQ(Text(), "\"abcdefgij\"");
    EXPECT_EQ(machine.heap.Sizes(), (Sizes{8, 16}));
}

TEST_F(JsonMemoryTest, WithoutMemoryTheTextEndsWhereItIs)
{
    FailAllocationsFrom(2);

    json.StringValue("abcdefghij");
    json.Finish();

    EXPECT_EQ(std::string(reinterpret_cast<const char*>(json.Text()), 8), "\"abcdefg");
}

TEST_F(JsonMemoryTest, WithoutAnyMemoryADocumentIsEmpty)
{
    FailAllocationsFrom(1);

    json.BeginObject();
    json.StringField("a", "b");
    json.EndObject();
    json.Finish();

    EXPECT_EQ(json.TextLength(), 0u);
    EXPECT_EQ(json.Text(), nullptr);
}

TEST_F(JsonMemoryTest, AContainerWithoutRoomOnTheStackCountsAsNotOpen)
{
    FailAllocation(2);

    json.BeginObject();
    json.UIntField("a", 1);
    json.EndObject();

    EXPECT_EQ(Text(), R"({,"a":1})");
}

TEST_F(JsonMemoryTest, AfterAFailedPushTheOuterContainersAreClosedInItsStead)
{
    FailAllocation(4);

    for (int i = 0; i < 9; ++i) {
        json.BeginArray();
    }
    json.UIntValue(1);
    for (int i = 0; i < 8; ++i) {
        json.EndArray();
    }
    json.UIntValue(2);
    json.UIntValue(3);
    json.EndArray();

    EXPECT_EQ(Text(), "[[[[[[[[[,1]]]]]]]]23]");
}

}  // namespace
