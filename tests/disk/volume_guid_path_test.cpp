#include "disk/mount_table.h"

namespace kk {
namespace {

using VolumeGuidPathTest = MountManagerTest;

TEST_F(VolumeGuidPathTest, IsThatOfTheVolume)
{
    machine.AddDisk(64 * kMiB).Gpt(
        {.partitions = {{.start = 1 * kMiB, .length = 8 * kMiB}, {.start = 10 * kMiB, .length = 8 * kMiB}}});
    const machine::Volume& first = *machine.FindVolume(0, 1 * kMiB);
    const machine::Volume& second = *machine.FindVolume(0, 10 * kMiB);

    EXPECT_EQ(GuidPath(first.DeviceName()), first.Path());
    EXPECT_EQ(GuidPath(second.DeviceName()), second.Path());
    EXPECT_EQ(GuidPath(u"\\Device\\HarddiskVolume3"), u"");
}

TEST_F(VolumeGuidPathTest, HasAnotherPrefixAndABackslashAtItsEnd)
{
    AnswerTable(MountTable(1).Add(kGuidLink1, kVolume1));

    EXPECT_EQ(GuidPath(kVolume1), kGuidPath1);
}

TEST_F(VolumeGuidPathTest, IsCutToTheCapacity)
{
    AnswerTable(MountTable(1).Add(kGuidLink1, kVolume1));
    const std::u16string whole = kGuidPath1;
    ASSERT_EQ(whole.size(), 49u);

    EXPECT_EQ(GuidPath(kVolume1, 51), whole);
    EXPECT_EQ(GuidPath(kVolume1, 50), whole);
    EXPECT_EQ(GuidPath(kVolume1, 49), whole.substr(0, 48));
    EXPECT_EQ(GuidPath(kVolume1, 48), whole.substr(0, 47));
    EXPECT_EQ(GuidPath(kVolume1, 5), u"\\\\?\\");
    EXPECT_EQ(GuidPath(kVolume1, 4), u"\\\\?");
    EXPECT_EQ(GuidPath(kVolume1, 1), u"");
    EXPECT_EQ(GuidPath(kVolume1, 0), u"#");
}

TEST_F(VolumeGuidPathTest, IsEmptiedWhenThereIsNone)
{
    AnswerTable(MountTable(0));

    EXPECT_EQ(GuidPath(kVolume1, 8), u"");
    EXPECT_EQ(GuidPath(kVolume1, 0), u"#");
}

TEST_F(VolumeGuidPathTest, ComesFromTheFirstEntryThatQualifies)
{
    AnswerTable(MountTable(5)
                    .Add(u"\\DosDevices\\C:", kVolume1)
                    .Add(u"\\??\\Volume{other}", u"\\Device\\HarddiskVolume2")
                    .Add(u"\\??\\Volume{first}", kVolume1)
                    .Add(u"\\??\\Volume{second}", kVolume1)
                    .Add(kGuidLink1, kVolume1));

    EXPECT_EQ(GuidPath(kVolume1), u"\\\\?\\Volume{first}\\");
}

TEST_F(VolumeGuidPathTest, TheDeviceNameMustBeWhole)
{
    AnswerTable(MountTable(2)
                    .Add(u"\\??\\Volume{longer}", u"\\Device\\HarddiskVolume10")
                    .Add(u"\\??\\Volume{shorter}", u"\\Device\\HarddiskVolume"));

    EXPECT_EQ(GuidPath(kVolume1), u"");
    EXPECT_EQ(GuidPath(u"\\Device\\HarddiskVolume10"), u"\\\\?\\Volume{longer}\\");
    EXPECT_EQ(GuidPath(u"\\Device\\HarddiskVolume"), u"\\\\?\\Volume{shorter}\\");
}

TEST_F(VolumeGuidPathTest, TheCaseOfTheDeviceNameDoesNotMatter)
{
    AnswerTable(MountTable(1).Add(kGuidLink1, u"\\DEVICE\\harddiskVOLUME1"));

    EXPECT_EQ(GuidPath(kVolume1), kGuidPath1);
}

TEST_F(VolumeGuidPathTest, TheCaseOfAccentedLettersMatters)
{
    AnswerTable(MountTable(1).Add(kGuidLink1, u"\\Device\\\u00C4"));

    EXPECT_EQ(GuidPath(u"\\Device\\\u00E4"), u"");
    EXPECT_EQ(GuidPath(u"\\Device\\\u00C4"), kGuidPath1);
}

TEST_F(VolumeGuidPathTest, TheCaseOfTheLinksPrefixDoesNotMatterAndItsRestIsKept)
{
    AnswerTable(MountTable(1).Add(u"\\??\\vOLUME{AbC}", kVolume1));

    EXPECT_EQ(GuidPath(kVolume1), u"\\\\?\\vOLUME{AbC}\\");
}

TEST_F(VolumeGuidPathTest, TheLinkMustHaveTheWholePrefix)
{
    AnswerTable(MountTable(4)
                    .Add(u"\\??\\Volume", kVolume1)
                    .Add(u"\\??\\Volume(1)", kVolume1)
                    .Add(u"\\\\?\\Volume{1}", kVolume1)
                    .Add(u"", kVolume1));

    EXPECT_EQ(GuidPath(kVolume1), u"");
}

// The name behind the link's end would complete the prefix.
TEST_F(VolumeGuidPathTest, ALinkShorterThanThePrefixDoesNotBorrowFromItsNeighbour)
{
    MountTable table(1);
    table.Add(kGuidLink1, kVolume1);
    MountPointRecord record = table.Record(0);
    record.symbolicLinkNameLength = 20;
    table.Record(0, record);
    AnswerTable(table);

    EXPECT_EQ(GuidPath(kVolume1), u"");
}

TEST_F(VolumeGuidPathTest, ALinkOfThePrefixAloneQualifies)
{
    AnswerTable(MountTable(1).Add(u"\\??\\Volume{", kVolume1));

    EXPECT_EQ(GuidPath(kVolume1), u"\\\\?\\Volume{\\");
}

TEST_F(VolumeGuidPathTest, ALinkWithABackslashAtItsEndGetsAnother)
{
    AnswerTable(MountTable(1).Add(u"\\??\\Volume{1}\\", kVolume1));

    EXPECT_EQ(GuidPath(kVolume1), u"\\\\?\\Volume{1}\\\\");
}

TEST_F(VolumeGuidPathTest, AnEmptyDeviceNameMatchesAnEmptyOneOnly)
{
    AnswerTable(MountTable(2).Add(u"\\??\\Volume{1}", kVolume1).Add(u"\\??\\Volume{2}", u""));

    EXPECT_EQ(GuidPath(u""), u"\\\\?\\Volume{2}\\");
}

}  // namespace
}  // namespace kk
