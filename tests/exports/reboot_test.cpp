#include "exports/support/export_test.h"

namespace {

class RebootTest : public ExportTest {
protected:
    static constexpr uint32_t kRestart = 1;
};

TEST_F(RebootTest, EnablesTheShutdownPrivilegeForTheProcessAndRestarts)
{
    SHOWS(KkReboot, KK_STATUS_SUCCESS,
          "the right to shut down is enabled for the process and stays so; the machine restarts");

    EXPECT_EQ(api.reboot(), 0);

    const std::vector<machine::CallRecord>& calls = machine.journal.Records();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].name, "RtlAdjustPrivilege");
    EXPECT_EQ(calls[0].code, 19u);
    EXPECT_EQ(calls[0].options, 1u);
    EXPECT_EQ(calls[0].object, "process");
    EXPECT_EQ(calls[1].name, "NtShutdownSystem");
    EXPECT_EQ(machine.shutdowns, std::vector{kRestart});
    EXPECT_TRUE(machine.privileges.IsEnabled(machine::kShutdownPrivilege)) << "and leaves it so";
}

TEST_F(RebootTest, PassesTheRefusalOnWhenThePrivilegeIsNotHeld)
{
    SHOWS(KkReboot, 0xC0000061, "the request is made without the right too, and its refusal is passed on");

    machine.privileges.TakeAway(machine::kShutdownPrivilege);

    EXPECT_EQ(api.reboot(), Status(0xC0000061));

    EXPECT_EQ(machine.journal.Count({.name = "NtShutdownSystem"}), 1u);
    EXPECT_TRUE(machine.shutdowns.empty());
}

TEST_F(RebootTest, DoesNotMindThatThePrivilegeCannotBeAdjusted)
{
    SHOWS(KkReboot, KK_STATUS_SUCCESS, "whether the right could be enabled does not matter");

    machine.privileges.Hold(machine::kShutdownPrivilege, true);
    machine.faults.Fail({.name = "RtlAdjustPrivilege"}, 1, 0xC0000022);

    EXPECT_EQ(api.reboot(), 0);

    EXPECT_EQ(machine.shutdowns, std::vector{kRestart});
}

TEST_F(RebootTest, PassesTheStatusOnUnchanged)
{
    SHOWS(KkReboot, KK_STATUS_UNSUCCESSFUL, "the status of the shutdown request is passed on unchanged");
    SHOWS(KkReboot, 0x80000005, "a warning is passed on unchanged");
    SHOWS(KkReboot, 0x00000103, "a success other than 0 is passed on unchanged");

    for (const uint32_t status : {0xC0000001u, 0x80000005u, 0x00000103u}) {
        machine.faults.Clear();
        machine.faults.Fail({.name = "NtShutdownSystem"}, 1, status);
        EXPECT_EQ(api.reboot(), Status(status));
    }
}

}  // namespace
