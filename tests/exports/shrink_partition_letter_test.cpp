#include "exports/support/partition_edit_test.h"

// The drive letter of a volume whose partition is shrunk.

namespace {

using machine::Volumes;

class ShrinkPartitionLetterTest : public PartitionEditTest {
protected:
    ShrinkPartitionLetterTest()
    {
        AddDisk(kSmallGpt, {{kMiB, 16 * kMiB}});
        machine.AssignLetter(TheVolume(), u'S');
    }
    machine::Volume& TheVolume() const { return *machine.FindVolume(0, kMiB); }
    size_t LettersSet() const { return machine.journal.Count({.name = "SetVolumeMountPointW"}); }
};

TEST_F(ShrinkPartitionLetterTest, ALetterThatStaysIsNotTouched)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "a letter that stays is not touched");

    ASSERT_EQ(Shrink(kMiB, 8 * kMiB), 0);

    EXPECT_EQ(TheVolume().Letter(), u'S');
    EXPECT_EQ(LettersSet(), 0u);
    EXPECT_EQ(machine.journal.Count({.name = "DeleteVolumeMountPointW"}), 0u);
    EXPECT_EQ(machine.journal.Count({.code = 0x6D0008}), 2u) << "it was looked at";
}

TEST_F(ShrinkPartitionLetterTest, ALetterThatIsLostOnTheRefreshComesBack)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS,
          "a letter that is lost when the system looks at the table again is given again");

    Volumes::LoseLetterOnRescan(TheVolume());

    ASSERT_EQ(Shrink(kMiB, 8 * kMiB), 0);

    EXPECT_EQ(TheVolume().Letter(), u'S');
    EXPECT_EQ(LettersSet(), 1u);
    EXPECT_TRUE(machine.journal.Before({.code = 0x70140}, {.name = "SetVolumeMountPointW"}));
}

TEST_F(ShrinkPartitionLetterTest, AnotherLetterIsReplaced)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "another letter that came meanwhile is replaced by the old one");

    TheDisk().AddWriteObserver([this](uint64_t, uint64_t) {
        machine.volumes.RemoveLetter(TheVolume());
        machine.AssignLetter(TheVolume(), u'T');
    });

    ASSERT_EQ(Shrink(kMiB, 8 * kMiB), 0);

    EXPECT_EQ(TheVolume().Letter(), u'S');
    EXPECT_EQ(machine.volumes.FindByLetter(u'T'), nullptr);
}

TEST_F(ShrinkPartitionLetterTest, AVolumeWithoutALetterGetsNone)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "a volume without a letter gets none");

    machine.volumes.RemoveLetter(TheVolume());

    ASSERT_EQ(Shrink(kMiB, 8 * kMiB), 0);

    EXPECT_EQ(TheVolume().Letter(), std::nullopt);
    EXPECT_EQ(LettersSet(), 0u);
    EXPECT_EQ(machine.journal.Count({.code = 0x6D0008}), 1u) << "there is nothing to look at again";
}

TEST_F(ShrinkPartitionLetterTest, ALetterThatSomebodyGaveMeanwhileStays)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "a letter that somebody gave meanwhile stays");

    machine.volumes.RemoveLetter(TheVolume());
    TheDisk().AddWriteObserver([this](uint64_t, uint64_t) { machine.volumes.AssignLetter(TheVolume(), u'T'); });

    ASSERT_EQ(Shrink(kMiB, 8 * kMiB), 0);

    EXPECT_EQ(TheVolume().Letter(), u'T');
}

TEST_F(ShrinkPartitionLetterTest, ItComesBackAlsoWhenTheTableWasLeftAlone)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "a lost letter is given again also when the table was left alone");

    machine.OnControl({.code = 0x901B0},
                      [this](const machine::CallRecord& call,
                             const machine::ControlRequest&) -> std::optional<machine::ControlAnswer> {
                          if (call.input[0] == 2) {
                              machine.volumes.RemoveLetter(TheVolume());
                          }
                          return std::nullopt;
                      });

    ASSERT_EQ(Shrink(kMiB, 15 * kMiB), 0);

    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::WriteFile}), 0u);
    EXPECT_EQ(TheVolume().Letter(), u'S');
}

TEST_F(ShrinkPartitionLetterTest, ItDoesNotComeBackAfterAFailedEdit)
{
    SHOWS(KkShrinkPartition, 0xC0000185, "after a failing write of the table a lost letter is not given again");

    TheDisk().AddWriteObserver([this](uint64_t, uint64_t) { machine.volumes.RemoveLetter(TheVolume()); });
    machine.faults.Fail({.kind = machine::CallKind::WriteFile}, 3, 0xC0000185);

    EXPECT_EQ(Shrink(kMiB, 8 * kMiB), Status(0xC0000185));

    EXPECT_EQ(TheVolume().Letter(), std::nullopt);
    EXPECT_EQ(LettersSet(), 0u);
}

TEST_F(ShrinkPartitionLetterTest, AVolumeThatDoesNotComeBackIsNotMissed)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "a volume that does not come back is not missed");

    TheDisk().AddWriteObserver([this](uint64_t, uint64_t) {
        if (machine.FindVolume(0, kMiB) != nullptr) {
            machine.HideVolume(TheVolume());
        }
    });

    EXPECT_EQ(Shrink(kMiB, 8 * kMiB), 0);

    EXPECT_EQ(LettersSet(), 0u);
}

TEST_F(ShrinkPartitionLetterTest, WhetherItCouldBeGivenAgainIsNotAsked)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "whether the letter could be given again does not matter");

    Volumes::LoseLetterOnRescan(TheVolume());
    machine.faults.FailFrom({.name = "SetVolumeMountPointW"}, 1, 0);
    EXPECT_EQ(Shrink(kMiB, 8 * kMiB), 0);
    EXPECT_EQ(LettersSet(), 1u);
}

TEST_F(ShrinkPartitionLetterTest, ItIsGivenAgainWhenItCannotBeReadAfterwards)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "a letter that cannot be read afterwards is given again");

    machine.faults.Fail({.code = 0x6D0008}, 2, 0xC0000022);

    EXPECT_EQ(Shrink(kMiB, 8 * kMiB), 0);

    EXPECT_EQ(machine.journal.Count({.name = "DeleteVolumeMountPointW"}), 1u);
    EXPECT_EQ(TheVolume().Letter(), u'S');
}

TEST_F(ShrinkPartitionLetterTest, WithoutTheMountPointCallsTheLetterIsLostAndTheCallSucceeds)
{
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "without kernel32.dll the letter is lost and the call succeeds");

    Volumes::LoseLetterOnRescan(TheVolume());
    machine.modules.Remove(u"kernel32.dll");

    EXPECT_EQ(Shrink(kMiB, 8 * kMiB), 0);

    EXPECT_EQ(TheVolume().Letter(), std::nullopt);
}

}  // namespace
