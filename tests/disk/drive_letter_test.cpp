#include "disk/mount_table.h"

namespace kk {
namespace {

using DriveLetterTest = MountManagerTest;

TEST_F(DriveLetterTest, IsThatOfTheVolume)
{
    machine.AddDisk(64 * kMiB).Gpt(
        {.partitions = {{.start = 1 * kMiB, .length = 8 * kMiB}, {.start = 10 * kMiB, .length = 8 * kMiB}}});
    machine::Volume& first = *machine.FindVolume(0, 1 * kMiB);
    machine::Volume& second = *machine.FindVolume(0, 10 * kMiB);
    machine.AssignLetter(second, u'X');

    EXPECT_EQ(DriveLetter(second.DeviceName()), u"X:");
    EXPECT_EQ(DriveLetter(first.DeviceName()), u"none");
}

TEST_F(DriveLetterTest, IsKeptInItsCase)
{
    AnswerTable(MountTable(1).Add(u"\\DosDevices\\k:", kVolume1));

    EXPECT_EQ(DriveLetter(kVolume1), u"k:");
}

TEST_F(DriveLetterTest, MayBeAnyCharacter)
{
    AnswerTable(MountTable(2).Add(u"\\DosDevices\\1:", kVolume1).Add(u"\\DosDevices\\\u00C4:", u"\\Device\\B"));

    EXPECT_EQ(DriveLetter(kVolume1), u"1:");
    EXPECT_EQ(DriveLetter(u"\\Device\\B"), u"\u00C4:");
}

TEST_F(DriveLetterTest, ComesFromTheFirstEntryThatQualifies)
{
    AnswerTable(MountTable(4)
                    .Add(kGuidLink1, kVolume1)
                    .Add(u"\\DosDevices\\A:", u"\\Device\\HarddiskVolume2")
                    .Add(u"\\DosDevices\\E:", kVolume1)
                    .Add(u"\\DosDevices\\D:", kVolume1));

    EXPECT_EQ(DriveLetter(kVolume1), u"E:");
}

TEST_F(DriveLetterTest, NeedsALinkOfExactlyFourteenCharacters)
{
    AnswerTable(MountTable(6)
                    .Add(u"\\DosDevices\\", kVolume1)
                    .Add(u"\\DosDevices\\C", kVolume1)
                    .Add(u"\\DosDevices\\:", kVolume1)
                    .Add(u"\\DosDevices\\C:\\", kVolume1)
                    .Add(u"\\DosDevices\\CC:", kVolume1)
                    .Add(u"", kVolume1));

    EXPECT_EQ(DriveLetter(kVolume1), u"none");
}

// What follows the link in memory is a colon.
TEST_F(DriveLetterTest, AShorterLinkDoesNotBorrowFromItsNeighbour)
{
    MountTable table(1);
    table.Add(u"\\DosDevices\\C:", kVolume1);
    MountPointRecord record = table.Record(0);
    record.symbolicLinkNameLength = 26;
    table.Record(0, record);
    AnswerTable(table);

    EXPECT_EQ(DriveLetter(kVolume1), u"none");
}

TEST_F(DriveLetterTest, NeedsAColonAtTheEnd)
{
    AnswerTable(MountTable(2).Add(u"\\DosDevices\\C;", kVolume1).Add(u"\\DosDevices\\:C", kVolume1));

    EXPECT_EQ(DriveLetter(kVolume1), u"none");
}

TEST_F(DriveLetterTest, NeedsThePrefixInAnyCase)
{
    AnswerTable(MountTable(3)
                    .Add(u"\\DosDevicesXC:", kVolume1)
                    .Add(u"\\DosDevice\\\\C:", kVolume1)
                    .Add(u"\\dOSdEVICES\\Y:", kVolume1));

    EXPECT_EQ(DriveLetter(kVolume1), u"Y:");
}

TEST_F(DriveLetterTest, TheDeviceNameMustBeWholeInAnyCase)
{
    AnswerTable(MountTable(3)
                    .Add(u"\\DosDevices\\A:", u"\\Device\\HarddiskVolume10")
                    .Add(u"\\DosDevices\\B:", u"\\Device\\HarddiskVolume")
                    .Add(u"\\DosDevices\\C:", u"\\device\\HARDDISKVOLUME1"));

    EXPECT_EQ(DriveLetter(kVolume1), u"C:");
}

bool AreEqual(const std::u16string& a, const std::u16string& b, size_t count)
{
    return NameEqualsIgnoreCase(a.c_str(), b.c_str(), count);
}

TEST(NameEqualsIgnoreCaseTest, FoldsEveryLetterFromAToZ)
{
    const std::u16string upper = u"ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    const std::u16string lower = u"abcdefghijklmnopqrstuvwxyz";

    EXPECT_TRUE(AreEqual(upper, lower, 26));
    EXPECT_TRUE(AreEqual(lower, upper, 26));
    EXPECT_TRUE(AreEqual(upper, upper, 26));
    EXPECT_FALSE(AreEqual(u"ab", u"AC", 2));
}

TEST(NameEqualsIgnoreCaseTest, FoldsNothingElse)
{
    // The neighbours of A and Z, and letters beyond ASCII, 32 apart like the two cases.
    EXPECT_FALSE(AreEqual(u"@", u"`", 1));
    EXPECT_FALSE(AreEqual(u"[", u"{", 1));
    EXPECT_FALSE(AreEqual(u"\\", u"|", 1));
    EXPECT_FALSE(AreEqual(u"\u00C4", u"\u00E4", 1));
    EXPECT_FALSE(AreEqual(u"\u0410", u"\u0430", 1));
    EXPECT_FALSE(AreEqual(u"\u0141", u"a", 1));
    EXPECT_TRUE(AreEqual(u"\u00C4{1}", u"\u00C4{1}", 4));
}

TEST(NameEqualsIgnoreCaseTest, ComparesTheCountAlone)
{
    EXPECT_TRUE(AreEqual(u"abX", u"ABY", 2));
    EXPECT_FALSE(AreEqual(u"abX", u"ABY", 3));
    EXPECT_TRUE(AreEqual(u"x", u"y", 0));
    EXPECT_TRUE(NameEqualsIgnoreCase(u"a\0B", u"A\0b", 3));
    EXPECT_FALSE(NameEqualsIgnoreCase(u"a\0B", u"A\0c", 3));
}

}  // namespace
}  // namespace kk
