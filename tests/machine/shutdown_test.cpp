#include "tests/machine/native_calls.h"

namespace machine {
namespace {

constexpr uint32_t kRestart = 1;
constexpr uint32_t kLoadDriverPrivilege = 10;

class ShutdownTest : public MachineTest {
protected:
    struct Adjusted {
        Status status;
        uint8_t before = 0xEE;

        bool operator==(const Adjusted&) const = default;
    };
    static Adjusted Adjust(uint32_t privilege, bool enable, bool thread = false)
    {
        Adjusted adjusted = {};
        adjusted.status = RtlAdjustPrivilege(privilege, enable ? 1 : 0, thread ? 1 : 0, &adjusted.before);
        return adjusted;
    }
    static Adjusted EnableShutdown() { return Adjust(kShutdownPrivilege, true); }
};

TEST_F(ShutdownTest, RestartsOnlyWithTheEnabledPrivilege)
{
    EXPECT_EQ(NtShutdownSystem(kRestart), kPrivilegeNotHeld);
    EXPECT_TRUE(machine.shutdowns.empty());
    EXPECT_EQ(EnableShutdown().status, kSuccess);
    EXPECT_EQ(NtShutdownSystem(kRestart), kSuccess);
    EXPECT_EQ(machine.shutdowns, std::vector{kRestart});
    EXPECT_EQ(machine.journal.Last({.name = "NtShutdownSystem"})->code, kRestart);
}

TEST_F(ShutdownTest, AdjustingTellsTheStateBefore)
{
    EXPECT_EQ(EnableShutdown(), (Adjusted{kSuccess, 0}));
    EXPECT_EQ(EnableShutdown(), (Adjusted{kSuccess, 1}));
    EXPECT_EQ(Adjust(kShutdownPrivilege, false), (Adjusted{kSuccess, 1}));
    EXPECT_EQ(EnableShutdown(), (Adjusted{kSuccess, 0}));
    EXPECT_EQ(machine.journal.Last({.name = "RtlAdjustPrivilege"})->code, kShutdownPrivilege);
    EXPECT_EQ(machine.journal.Last({.name = "RtlAdjustPrivilege"})->options, 1u);
}

TEST_F(ShutdownTest, ADisabledPrivilegeNoLongerCounts)
{
    EnableShutdown();
    Adjust(kShutdownPrivilege, false);

    EXPECT_EQ(NtShutdownSystem(kRestart), kPrivilegeNotHeld);
}

TEST_F(ShutdownTest, PrivilegesThatAreNotHeldCannotBeAdjusted)
{
    EXPECT_EQ(Adjust(kLoadDriverPrivilege, true), (Adjusted{kPrivilegeNotHeld}));
    machine.privileges.Hold(kLoadDriverPrivilege, true);
    EXPECT_EQ(Adjust(kLoadDriverPrivilege, true), (Adjusted{kSuccess, 1}));
    machine.privileges.TakeAway(kShutdownPrivilege);
    EXPECT_EQ(EnableShutdown(), (Adjusted{kPrivilegeNotHeld}));
    EXPECT_EQ(NtShutdownSystem(kRestart), kPrivilegeNotHeld);
}

TEST_F(ShutdownTest, AThreadHasNoTokenOfItsOwnAndTheProcessKeepsItsState)
{
    EXPECT_EQ(Adjust(kShutdownPrivilege, true, true), (Adjusted{kNoToken}));
    EXPECT_EQ(machine.journal.Last({.name = "RtlAdjustPrivilege"})->object, "thread");
    EXPECT_FALSE(machine.privileges.IsEnabled(kShutdownPrivilege));
    EXPECT_EQ(EnableShutdown(), (Adjusted{kSuccess, 0}));
    EXPECT_EQ(machine.journal.Last({.name = "RtlAdjustPrivilege"})->object, "process");
}

TEST_F(ShutdownTest, NoPlaceForTheStateBeforeIsABreach)
{
    EXPECT_EQ(RtlAdjustPrivilege(kShutdownPrivilege, 1, 0, nullptr), kAccessViolation);
    EXPECT_EQ(TakeBreaches().size(), 1u);
}

TEST_F(ShutdownTest, UnknownActionsAreRefused)
{
    EnableShutdown();

    EXPECT_EQ(NtShutdownSystem(3), kInvalidParameter);
    EXPECT_TRUE(machine.shutdowns.empty());
}

TEST_F(ShutdownTest, BothCallsCanBeMadeToFail)
{
    machine.faults.FailCall(1);
    EXPECT_EQ(EnableShutdown(), (Adjusted{kPrivilegeNotHeld}));
    EXPECT_FALSE(machine.privileges.IsEnabled(kShutdownPrivilege));
    EnableShutdown();
    machine.faults.Fail({.name = "NtShutdownSystem"}, 1, 0xC0000001);
    EXPECT_EQ(NtShutdownSystem(kRestart), AsStatus(0xC0000001));
    EXPECT_TRUE(machine.shutdowns.empty());
}

}  // namespace
}  // namespace machine
