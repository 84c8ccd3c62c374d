// How the mount manager is asked, and which of its answers are believed.

#include <algorithm>

#include "disk/mount_table.h"

namespace kk {
namespace {

using MountQueryTest = MountManagerTest;

machine::ControlAnswer Overflow(uint32_t size)
{
    return {.status = machine::kBufferOverflow, .output = machine::BytesOf(size)};
}

TEST_F(MountQueryTest, AsksForEveryMountPoint)
{
    EXPECT_EQ(GuidPath(kVolume1), u"");

    const auto opens = machine.journal.FindAll({.kind = machine::CallKind::CreateFile});
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0].object, "\\Device\\MountPointManager");
    EXPECT_EQ(opens[0].access, 0x120089u);
    EXPECT_EQ(opens[0].options, 0x860u);
    const auto queries = machine.journal.FindAll({.kind = machine::CallKind::DeviceControl});
    ASSERT_EQ(queries.size(), 1u);
    EXPECT_EQ(queries[0].code, 0x6D0008u);
    EXPECT_EQ(queries[0].input, std::vector<uint8_t>(24));
    EXPECT_EQ(queries[0].length, 16384u);
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Close}), 1u);
}

TEST_F(MountQueryTest, ReadsTheTableAfreshEachTime)
{
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{.start = 1 * kMiB, .length = 8 * kMiB}}});
    machine::Volume& volume = *machine.FindVolume(0, 1 * kMiB);

    EXPECT_EQ(DriveLetter(volume.DeviceName()), u"none");
    machine.AssignLetter(volume, u'K');
    EXPECT_EQ(DriveLetter(volume.DeviceName()), u"K:");
    machine.volumes.RemoveLetter(volume);
    EXPECT_EQ(DriveLetter(volume.DeviceName()), u"none");
}

TEST_F(MountQueryTest, ALargeTableIsReadAfterOneResize)
{
    for (int i = 0; i < 300; ++i) {
        machine.mountManager->AddMountPoint(u"\\DosDevices\\folder", u"\\Device\\Other");
    }
    machine.mountManager->AddMountPoint(kGuidLink1, kVolume1);
    const size_t size = machine::MountManager::Encode(machine.mountManager->Points()).size();
    ASSERT_GT(size, 16384u);

    EXPECT_EQ(GuidPath(kVolume1), kGuidPath1);
    EXPECT_EQ(QueryLengths(), (std::vector<uint64_t>{16384, size}));
}

TEST_F(MountQueryTest, ASizeThatDoublingCoversIsPassedAsItIs)
{
    AnswerQuery([](const machine::ControlRequest& request) {
        return request.outputRoom < 16400
                   ? Overflow(16400)
                   : machine::ControlAnswer{.output = MountTable(1).Add(kGuidLink1, kVolume1).Bytes()};
    });

    EXPECT_EQ(GuidPath(kVolume1), kGuidPath1);
    EXPECT_EQ(QueryLengths(), (std::vector<uint64_t>{16384, 16400}));
    const std::vector<uint64_t>& sizes = machine.heap.Sizes();
    EXPECT_NE(std::find(sizes.begin(), sizes.end(), 32768u), sizes.end());
}

TEST_F(MountQueryTest, TheFourthAnswerMaySucceed)
{
    int calls = 0;
    AnswerQuery([&](const machine::ControlRequest& request) {
        return ++calls < 4 ? Overflow(request.outputRoom + 1000)
                           : machine::ControlAnswer{.output = MountTable(1).Add(kGuidLink1, kVolume1).Bytes()};
    });

    EXPECT_EQ(GuidPath(kVolume1), kGuidPath1);
    EXPECT_EQ(QueryLengths(), (std::vector<uint64_t>{16384, 17384, 18384, 19384}));
}

TEST_F(MountQueryTest, FourOverflowsEndTheLookUp)
{
    AnswerQuery([](const machine::ControlRequest& request) { return Overflow(request.outputRoom + 1000); });

    EXPECT_EQ(GuidPath(kVolume1), u"");
    EXPECT_EQ(QueryLengths(), (std::vector<uint64_t>{16384, 17384, 18384, 19384}));
    EXPECT_EQ(DriveLetter(kVolume1), u"none");
    EXPECT_EQ(QueryLengths().size(), 8u);
}

TEST_F(MountQueryTest, TheBufferNeverShrinks)
{
    for (const uint32_t size : {0u, 3u, 16383u, 16384u}) {
        machine.journal.Clear();
        AnswerQuery([size](const machine::ControlRequest&) { return Overflow(size); });

        EXPECT_EQ(GuidPath(kVolume1), u"");
        EXPECT_EQ(QueryLengths(), std::vector<uint64_t>(4, 16384));
    }
}

TEST_F(MountQueryTest, ASizeThatCannotBeHadEndsTheLookUp)
{
    AnswerQuery([](const machine::ControlRequest&) { return Overflow(0xFFFFFFFF); });

    EXPECT_EQ(GuidPath(kVolume1), u"");
    EXPECT_EQ(DriveLetter(kVolume1), u"none");
    EXPECT_EQ(QueryLengths(), (std::vector<uint64_t>{16384, 16384}));
}

TEST_F(MountQueryTest, AnOverflowWithoutASizeIsTriedAgain)
{
    AnswerQuery(
        [](const machine::ControlRequest&) { return machine::ControlAnswer{.status = machine::kBufferOverflow}; });

    EXPECT_EQ(GuidPath(kVolume1), u"");
    EXPECT_EQ(QueryLengths(), std::vector<uint64_t>(4, 16384));
}

TEST_F(MountQueryTest, AnyOtherFailureEndsTheLookUpAtOnce)
{
    machine.mountManager->AddMountPoint(kGuidLink1, kVolume1);
    for (const uint32_t failure : {0xC0000023u, 0xC000000Du, 0x80000006u}) {
        machine.journal.Clear();
        machine.faults.Clear();
        machine.faults.FailFrom({.code = kIoctlMountmgrQueryPoints}, 1, failure);

        EXPECT_EQ(GuidPath(kVolume1), u"");
        EXPECT_EQ(DriveLetter(kVolume1), u"none");
        EXPECT_EQ(QueryLengths().size(), 2u);
    }
}

TEST_F(MountQueryTest, AWarningsTableIsNotUsed)
{
    AnswerQuery([](const machine::ControlRequest&) {
        return machine::ControlAnswer{.status = Status(0x80000006),
                                      .output = MountTable(1).Add(kGuidLink1, kVolume1).Bytes()};
    });

    EXPECT_EQ(GuidPath(kVolume1), u"");
}

TEST_F(MountQueryTest, AMountManagerThatDoesNotOpenKnowsNothing)
{
    machine.mountManager->AddMountPoint(kGuidLink1, kVolume1);
    machine.faults.FailFrom({.kind = machine::CallKind::CreateFile}, 1, 0xC0000022);

    EXPECT_EQ(GuidPath(kVolume1), u"");
    EXPECT_EQ(DriveLetter(kVolume1), u"none");
    EXPECT_TRUE(QueryLengths().empty());
}

TEST_F(MountQueryTest, WithoutMemoryNothingIsFound)
{
    machine.mountManager->AddMountPoint(kGuidLink1, kVolume1);
    machine.mountManager->AddMountPoint(u"\\DosDevices\\C:", kVolume1);
    for (uint64_t allocation = 1; allocation <= 2; ++allocation) {
        machine.faults.Clear();
        machine.faults.Fail({.kind = machine::CallKind::Allocate}, allocation, 0);
        EXPECT_EQ(GuidPath(kVolume1), u"");

        machine.faults.Clear();
        machine.faults.Fail({.kind = machine::CallKind::Allocate}, allocation, 0);
        EXPECT_EQ(DriveLetter(kVolume1), u"none");
    }
    EXPECT_TRUE(QueryLengths().empty());
    machine.faults.Clear();
    EXPECT_EQ(GuidPath(kVolume1), kGuidPath1);
}

TEST_F(MountQueryTest, EntriesBeyondTheAnswerAreNotBelieved)
{
    MountTable table(2);
    table.Add(kGuidLink1, u"\\Device\\Other").SetCount(0xFFFFFFFF);
    AnswerTable(table);

    EXPECT_EQ(GuidPath(kVolume1), u"");
    EXPECT_EQ(GuidPath(u"\\Device\\Other"), kGuidPath1);
}

TEST_F(MountQueryTest, EntriesBeyondTheCountAreNotLookedAt)
{
    MountTable table(2);
    table.Add(kGuidLink1, u"\\Device\\Other").Add(kGuidLink1, kVolume1).SetCount(1);
    AnswerTable(table);

    EXPECT_EQ(GuidPath(kVolume1), u"");
}

TEST_F(MountQueryTest, AnAnswerThatIsTooShortHasNoEntries)
{
    const std::vector<uint8_t> bytes = MountTable(1).Add(kGuidLink1, kVolume1).Bytes();
    for (const uint64_t information : {0u, 4u, 7u, 8u, 31u}) {
        AnswerQuery([=](const machine::ControlRequest&) {
            return machine::ControlAnswer{.output = bytes, .information = information};
        });

        EXPECT_EQ(GuidPath(kVolume1), u"") << information;
    }
}

TEST_F(MountQueryTest, AnEmptyAnswerHasNoEntries)
{
    AnswerQuery([](const machine::ControlRequest&) { return machine::ControlAnswer{}; });

    EXPECT_EQ(GuidPath(kVolume1), u"");
    EXPECT_EQ(DriveLetter(kVolume1), u"none");
    EXPECT_EQ(QueryLengths().size(), 2u);
}

TEST_F(MountQueryTest, NamesMustLieInsideWhatWasReturned)
{
    const std::vector<uint8_t> bytes = MountTable(1).Add(kGuidLink1, kVolume1).Bytes();
    for (const size_t missing : {size_t{1}, sizeof(kVolume1) - 2, sizeof(kVolume1) + 10}) {
        AnswerQuery([=](const machine::ControlRequest&) {
            return machine::ControlAnswer{.output = bytes, .information = bytes.size() - missing};
        });

        EXPECT_EQ(GuidPath(kVolume1), u"") << missing;
    }
}

TEST_F(MountQueryTest, MoreBytesThanTheBufferHoldsAreNotBelieved)
{
    MountTable table(1);
    table.Add(kGuidLink1, kVolume1);
    for (const uint32_t offset : {16384u, 16384u - 10, 20000u, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
        MountPointRecord record = table.Record(0);
        record.symbolicLinkNameOffset = offset;
        MountTable hostile = table;
        hostile.Record(0, record);
        AnswerQuery([bytes = hostile.Bytes()](const machine::ControlRequest&) {
            return machine::ControlAnswer{.output = bytes, .information = 0xFFFFFFFF};
        });

        EXPECT_EQ(GuidPath(kVolume1), u"") << offset;
        EXPECT_EQ(DriveLetter(kVolume1), u"none");
    }
}

TEST_F(MountQueryTest, AnEntryWithABadNameIsSkipped)
{
    MountTable table(3);
    table.Add(kGuidLink1, kVolume1).Add(kGuidLink1, kVolume1).Add(kGuidLink1, kVolume1);
    MountPointRecord badLink = table.Record(0);
    badLink.symbolicLinkNameOffset = 0xFFFFFFFF;
    table.Record(0, badLink);
    MountPointRecord badDevice = table.Record(1);
    badDevice.deviceNameOffset = static_cast<uint32_t>(table.Bytes().size()) - badDevice.deviceNameLength + 1;
    table.Record(1, badDevice);
    AnswerTable(table);

    EXPECT_EQ(GuidPath(kVolume1), kGuidPath1);
}

TEST_F(MountQueryTest, ANameMayEndWithTheAnswer)
{
    AnswerTable(MountTable(1).Add(kGuidLink1, kVolume1));

    EXPECT_EQ(GuidPath(kVolume1), kGuidPath1);
}

TEST_F(MountQueryTest, NamesMayLieAtOddAddresses)
{
    AnswerTable(MountTable(2).Add(kGuidLink1, kVolume1, 1).Add(u"\\DosDevices\\Q:", kVolume1, 3));

    EXPECT_EQ(GuidPath(kVolume1), kGuidPath1);
    EXPECT_EQ(DriveLetter(kVolume1), u"Q:");
}

TEST_F(MountQueryTest, AnOddByteAtTheEndOfANameDoesNotCount)
{
    MountTable table(1);
    table.Add(kGuidLink1, kVolume1, 2);
    MountPointRecord record = table.Record(0);
    ++record.symbolicLinkNameLength;
    table.Record(0, record);
    AnswerTable(table);

    EXPECT_EQ(GuidPath(kVolume1), kGuidPath1);
}

}  // namespace
}  // namespace kk
