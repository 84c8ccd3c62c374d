#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "exports/support/image_mount_test.h"

namespace {

using kk::StorageDependencyEntry;
using kk::StorageDependencyInfo;
using machine::CallKind;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kUsualRoom = 2120;
constexpr uint32_t kTooSmall = 122;
constexpr char16_t kFiller = u'?';

/// What a caller gets to see.
struct DiskAnswer {
    explicit DiskAnswer(size_t capacity) : room(capacity + kBehind, kFiller) {}

    static constexpr size_t kBehind = 4;

    std::u16string Path() const { return room.c_str(); }
    /// Nothing behind the first `capacity` units was written.
    bool KeptToItsRoom() const { return room.ends_with(std::u16string(kBehind, kFiller)); }

    uint32_t isImage = 7;
    std::u16string room;
};

DiskAnswer Ask(const machine::KestrelkitApi& api, uint32_t disk, uint32_t capacity = 512)
{
    DiskAnswer answer(capacity);
    EXPECT_EQ(api.queryDiskImage(disk, &answer.isImage, answer.room.data(), capacity), 0);
    EXPECT_TRUE(answer.KeptToItsRoom());
    return answer;
}

/// Disk 1 shows an image.
class QueryDiskImageTest : public ImageMountTest {
protected:
    QueryDiskImageTest()
    {
        EXPECT_EQ(Mount(), 0);
        EXPECT_EQ(diskNumber, 1u);
        machine.journal.Clear();
    }

    void ExpectNoImage(uint32_t disk = 1)
    {
        const DiskAnswer answer = Ask(api, disk);
        EXPECT_EQ(answer.isImage, 0u);
        EXPECT_EQ(answer.Path(), u"");
        EXPECT_EQ(machine.Imbalances(), std::vector<std::string>{});
    }
    /// The answer when the service tells these texts.
    std::u16string PathOf(const machine::DependencyTexts& texts, uint32_t capacity = 512)
    {
        deviation.texts = texts;
        const DiskAnswer answer = Ask(api, 1, capacity);
        EXPECT_EQ(answer.isImage, 1u);
        return answer.Path();
    }
    /// The lengths of the queries, and those of the memory blocks, since the last call.
    std::vector<uint64_t> QueryLengths() const { return Lengths({.name = "GetStorageDependencyInformation"}); }
    std::vector<uint64_t> BlockLengths() const { return Lengths({.kind = CallKind::Allocate}); }

    machine::DependencyBehaviour& deviation = virtualDisks.behaviour.dependency;

private:
    std::vector<uint64_t> Lengths(const machine::CallPattern& pattern) const
    {
        std::vector<uint64_t> lengths;
        for (const machine::CallRecord& call : machine.journal.FindAll(pattern)) {
            lengths.push_back(call.length);
        }
        return lengths;
    }
};

/// The same disks, and a service that answers what a test wants.
class QueryDiskImageScriptedTest : public ScriptedMountTest {};

TEST_F(QueryDiskImageTest, AnImagesDiskTellsWhichFileItShows)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "an attached image's disk tells the file that it shows");

    const DiskAnswer answer = Ask(api, 1);

    EXPECT_EQ(answer.isImage, 1u);
    EXPECT_TRUE(answer.Path().starts_with(u"\\\\?\\Volume{"));
    EXPECT_EQ(machine.drives.HostPath(answer.Path()), ImagePath().string());
}

TEST_F(QueryDiskImageTest, AnOverlaysDiskTellsOfTheOverlay)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "an overlay's disk tells the overlay");

    ASSERT_EQ(Unmount(), 0);
    ASSERT_EQ(MountOverlay(), 0);

    EXPECT_EQ(machine.drives.HostPath(Ask(api, diskNumber).Path()), OverlayPath().string());
}

TEST_F(QueryDiskImageTest, ARealDiskAndAMissingOneShowNoImage)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "real and missing disks show no image");

    ExpectNoImage(0);
    ExpectNoImage(2);
    ExpectNoImage(0xFFFFFFFF);
}

TEST_F(QueryDiskImageTest, ADiskIsNoImageAnyMoreOnceItIsUnmounted)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "a disk shows no image once that is unmounted");

    ASSERT_EQ(Unmount(), 0);

    ExpectNoImage();
}

TEST_F(QueryDiskImageTest, TheDiskIsOpenedWithNoRightButToAskAndClosed)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "the disk is opened with no right but to ask, and closed");

    (void)Ask(api, 1);

    const auto opens = machine.journal.FindAll({.kind = CallKind::CreateFile});
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0].object, "\\??\\PhysicalDrive1");
    EXPECT_EQ(opens[0].access, 0x100080u);
    EXPECT_EQ(opens[0].fileAttributes, 0x80u);
    EXPECT_EQ(opens[0].share, 3u);
    EXPECT_EQ(opens[0].disposition, 1u);
    EXPECT_EQ(opens[0].options, 0x60u);
    EXPECT_EQ(opens[0].objectAttributes, 0x40u);
    const machine::CallRecord* const query = machine.journal.First({.name = "GetStorageDependencyInformation"});
    ASSERT_NE(query, nullptr);
    EXPECT_EQ(query->object, "\\??\\PhysicalDrive1");
    EXPECT_EQ(query->options, 3u);
    EXPECT_THAT(QueryLengths(), ElementsAre(kUsualRoom));
    EXPECT_THAT(BlockLengths(), ElementsAre(kUsualRoom));
    EXPECT_EQ(machine.Imbalances(), std::vector<std::string>{});
}

TEST_F(QueryDiskImageTest, TheDisksNumberIsWrittenOutInFull)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "disk numbers of up to 32 bits are written out in full");

    for (const uint32_t disk : {0u, 10u, 4294967295u}) {
        machine.journal.Clear();

        (void)Ask(api, disk);

        EXPECT_EQ(machine.journal.First({.kind = CallKind::CreateFile})->object,
                  "\\??\\PhysicalDrive" + std::to_string(disk));
    }
}

TEST_F(QueryDiskImageTest, VolumeAndPathAreJoinedByOneBackslash)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "volume and path are joined by one backslash");

    EXPECT_EQ(PathOf({.hostVolumeName = u"V:", .relativePath = u"\\f"}), u"V:\\f");
    EXPECT_EQ(PathOf({.hostVolumeName = u"V:\\", .relativePath = u"\\f"}), u"V:\\f");
    EXPECT_EQ(PathOf({.hostVolumeName = u"V:\\", .relativePath = u"f"}), u"V:\\f");
    EXPECT_EQ(PathOf({.hostVolumeName = u"V:", .relativePath = u"f"}), u"V:\\f");
    EXPECT_EQ(PathOf({.hostVolumeName = u"V:\\\\", .relativePath = u"\\\\f"}), u"V:\\\\\\f") << "one of them goes";
    EXPECT_EQ(PathOf({.hostVolumeName = u"\\", .relativePath = u"\\"}), u"\\");
}

TEST_F(QueryDiskImageTest, WhatIsMissingIsLeftOut)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS,
          "what the service does not tell is left out; its name of the device comes last");

    const std::u16string device = u"device";
    const std::u16string host = u"V:\\";
    const std::u16string path = u"\\f";
    const std::optional<std::u16string> missingOrEmpty[] = {std::nullopt, u""};
    for (const auto& none : missingOrEmpty) {
        EXPECT_EQ(PathOf({.deviceName = device, .hostVolumeName = host, .relativePath = none}), host);
        EXPECT_EQ(PathOf({.deviceName = device, .hostVolumeName = none, .relativePath = path}), path);
        EXPECT_EQ(PathOf({.deviceName = device, .hostVolumeName = none, .relativePath = none}), device);
        EXPECT_EQ(PathOf({.deviceName = none, .hostVolumeName = none, .relativePath = none}), u"");
        EXPECT_EQ(PathOf({.deviceName = none, .hostVolumeName = host, .relativePath = path}), u"V:\\f");
    }
    EXPECT_EQ(PathOf({.deviceName = device, .hostVolumeName = host, .dependentVolumeName = u"other"}), host);
}

TEST_F(QueryDiskImageTest, APathThatDoesNotFitIsCut)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "a path that does not fit is cut, and terminated");

    const machine::DependencyTexts apart = {.hostVolumeName = u"VV", .relativePath = u"ffff"};
    const std::u16string whole = u"VV\\ffff";
    for (uint32_t capacity = 1; capacity <= whole.size() + 2; ++capacity) {
        EXPECT_EQ(PathOf(apart, capacity), whole.substr(0, capacity - 1));
        EXPECT_EQ(PathOf({.relativePath = whole}, capacity), whole.substr(0, capacity - 1));
        EXPECT_EQ(PathOf({.deviceName = whole}, capacity), whole.substr(0, capacity - 1));
        EXPECT_EQ(PathOf({.hostVolumeName = u"VV\\", .relativePath = u"\\ffff"}, capacity),
                  whole.substr(0, capacity - 1));
    }
}

TEST_F(QueryDiskImageTest, WithoutRoomForAPathNoneIsWritten)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "without room for the path nothing is written there");

    const DiskAnswer answer = Ask(api, 1, 0);

    EXPECT_EQ(answer.isImage, 1u);
    EXPECT_EQ(answer.room, std::u16string(DiskAnswer::kBehind, kFiller));
    EXPECT_EQ(Ask(api, 0, 0).room, std::u16string(DiskAnswer::kBehind, kFiller));
}

TEST_F(QueryDiskImageTest, EachOutputIsOptional)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "each output is optional");

    uint32_t isImage = 7;
    std::u16string path(300, kFiller);

    EXPECT_EQ(api.queryDiskImage(1, &isImage, nullptr, 300), 0);
    EXPECT_EQ(isImage, 1u);
    EXPECT_EQ(api.queryDiskImage(1, nullptr, path.data(), 300), 0);
    EXPECT_EQ(machine.drives.HostPath(path.c_str()), ImagePath().string());
    EXPECT_EQ(api.queryDiskImage(0, nullptr, path.data(), 300), 0);
    EXPECT_EQ(path[0], u'\0');
    EXPECT_EQ(api.queryDiskImage(1, nullptr, nullptr, 0), 0);
}

TEST_F(QueryDiskImageTest, AnAnswerThatDoesNotFitIsAskedForAgainWithTheRoomThatItNeeds)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS,
          "an answer that does not fit is asked for again with the room that it needs");

    deviation.refusals = 1;
    // The room itself grows to twice as much at least; the query is told what is needed.
    const std::pair<uint32_t, uint64_t> cases[] = {{2121, 4240}, {4240, 4240}, {4241, 4241}, {100000, 100000}};
    for (const auto& [needed, block] : cases) {
        machine.journal.Clear();
        deviation.refusals = 1;
        deviation.neededBytes = needed;

        EXPECT_EQ(Ask(api, 1).isImage, 1u);

        EXPECT_THAT(QueryLengths(), ElementsAre(kUsualRoom, needed));
        EXPECT_THAT(BlockLengths(), ElementsAre(kUsualRoom, block));
    }
}

TEST_F(QueryDiskImageTest, ALongAnswerIsUnderstood)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "a path of 4000 units is told");

    const std::u16string path = u"\\" + std::u16string(4000, u'x');

    EXPECT_EQ(PathOf({.hostVolumeName = u"V:", .relativePath = path}, 5000), u"V:" + path);

    EXPECT_EQ(QueryLengths().size(), 2u);
}

TEST_F(QueryDiskImageTest, ASecondRefusalEndsIt)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "an answer that does not fit the second time means no image");

    deviation.refusals = 2;
    deviation.neededBytes = 5000;

    ExpectNoImage();

    EXPECT_THAT(QueryLengths(), ElementsAre(kUsualRoom, 5000u));
}

TEST_F(QueryDiskImageTest, ARefusalThatDoesNotAskForMoreEndsIt)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "a service that wants more room without saying how much means no image");

    for (const uint32_t needed : {0u, 8u, kUsualRoom - 1, kUsualRoom}) {
        machine.journal.Clear();
        deviation.refusals = 1;
        deviation.neededBytes = needed;

        ExpectNoImage();

        EXPECT_THAT(QueryLengths(), ElementsAre(kUsualRoom));
    }
}

TEST_F(QueryDiskImageTest, RoomThatThereIsNotEndsIt)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "no memory means no image");

    machine.faults.Fail({.kind = CallKind::Allocate}, 1, 0);
    ExpectNoImage();
    EXPECT_THAT(QueryLengths(), IsEmpty());

    machine.faults.Clear();
    machine.faults.Fail({.kind = CallKind::Allocate}, 2, 0);
    deviation.refusals = 1;
    deviation.neededBytes = 0xFFFFFFFF;
    ExpectNoImage();
    EXPECT_EQ(BlockLengths().back(), 0xFFFFFFFFu);
}

TEST_F(QueryDiskImageTest, AFailedQueryOrAnEmptyAnswerMeansNoImage)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "a failing question, or an answer without entries, means no image");

    deviation.hasNoEntries = true;
    ExpectNoImage();

    for (const uint32_t error : {5u, 87u, 1117u, 0xC03A0015u}) {
        deviation.failure = error;
        ExpectNoImage();
    }
}

TEST_F(QueryDiskImageTest, ADiskThatDoesNotOpenIsNotAskedAnything)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "a disk that does not open shows no image");

    machine.faults.Fail({.kind = CallKind::CreateFile}, 1, 0xC0000022);

    ExpectNoImage();

    EXPECT_THAT(BlockLengths(), IsEmpty());
    EXPECT_THAT(QueryLengths(), IsEmpty());
}

/// Both queries find a record that is blank but for the version.
bool IsBlankRequest(const StorageDependencyInfo* answer, uint32_t size)
{
    const auto* const bytes = reinterpret_cast<const uint8_t*>(answer);
    return answer->version == 2 && std::all_of(bytes + 4, bytes + size, [](uint8_t byte) { return byte == 0; });
}

TEST_F(QueryDiskImageScriptedTest, EveryQueryFindsABlankRecord)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "each question is put with a blank record");

    size_t queries = 0;
    service.answerDependencies = [&](StorageDependencyInfo* answer, uint32_t size, uint32_t* sizeUsed) {
        EXPECT_TRUE(IsBlankRequest(answer, size));
        std::memset(answer, 0xEE, size);
        *sizeUsed = 3000;
        ++queries;
        return kTooSmall;
    };

    EXPECT_EQ(Ask(api, 0).isImage, 0u);

    EXPECT_EQ(queries, 2u);
    EXPECT_THAT(service.log, ElementsAre("GetDependencies \\??\\PhysicalDrive0 3 2120",
                                         "GetDependencies \\??\\PhysicalDrive0 3 3000"));
}

TEST_F(QueryDiskImageScriptedTest, OnlyTheFirstOfManyEntriesCounts)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "the first entry of the answer counts");

    service.answerDependencies = [](StorageDependencyInfo* answer, uint32_t, uint32_t* sizeUsed) {
        auto* const entries = reinterpret_cast<StorageDependencyEntry*>(answer + 1);
        answer->numberEntries = 0xFFFFFFFF;
        entries[0].hostVolumeName = u"first";
        entries[1].hostVolumeName = u"second";
        *sizeUsed = 0xFFFFFFFF;
        return 0u;
    };

    const DiskAnswer answer = Ask(api, 0);

    EXPECT_EQ(answer.isImage, 1u);
    EXPECT_EQ(answer.Path(), u"first");
}

TEST_F(QueryDiskImageScriptedTest, EntriesOfAFailedQueryDoNotCount)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "entries of a failed question do not count");

    service.answerDependencies = [](StorageDependencyInfo* answer, uint32_t, uint32_t*) {
        answer->numberEntries = 1;
        reinterpret_cast<StorageDependencyEntry*>(answer + 1)->hostVolumeName = u"first";
        return 5u;
    };

    const DiskAnswer answer = Ask(api, 0);

    EXPECT_EQ(answer.isImage, 0u);
    EXPECT_EQ(answer.Path(), u"");
}

TEST_F(QueryDiskImageScriptedTest, TheTextsOfTheSecondAnswerCount)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "the texts of the second answer count");

    bool isFirst = true;
    service.answerDependencies = [&isFirst](StorageDependencyInfo* answer, uint32_t, uint32_t* sizeUsed) {
        answer->numberEntries = 1;
        reinterpret_cast<StorageDependencyEntry*>(answer + 1)->hostVolumeName = isFirst ? u"first" : u"second";
        *sizeUsed = 2200;
        return std::exchange(isFirst, false) ? kTooSmall : 0u;
    };

    EXPECT_EQ(Ask(api, 0).Path(), u"second");
}

TEST_F(QueryDiskImageScriptedTest, ASizeThatIsNotToldIsNoReasonToAskAgain)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "a size that is not told is no reason to ask again");

    service.answerDependencies = [](auto...) { return kTooSmall; };

    EXPECT_EQ(Ask(api, 0).isImage, 0u);

    EXPECT_EQ(service.log.size(), 1u);
}

}  // namespace
