#include "core/system_time.h"

#include "support/machine_test.h"

namespace kk {
namespace {

class SystemTimeTest : public MachineTest {};

TEST_F(SystemTimeTest, IsTheSystemsTime)
{
    machine.clock.SetTime(133'500'000'123'456'789);

    EXPECT_EQ(QuerySystemTime(), 133'500'000'123'456'789);
    EXPECT_EQ(machine.journal.Count({.name = "NtQuerySystemTime"}), 1u);
}

TEST(FoldTimeTest, CombinesBothHalves)
{
    EXPECT_EQ(FoldTime(0), 0u);
    EXPECT_EQ(FoldTime(0x0000000012345678), 0x12345678u);
    EXPECT_EQ(FoldTime(0x1234567800000000), 0x12345678u);
    EXPECT_EQ(FoldTime(0x01DA4F9B0F0F0F0F), 0x01DA4F9Bu ^ 0x0F0F0F0Fu);
    EXPECT_EQ(FoldTime(-1), 0u);
}

}  // namespace
}  // namespace kk
