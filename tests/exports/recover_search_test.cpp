#include <fstream>
#include <tuple>

#include "core/nt.h"
#include "exports/support/recover_test.h"
#include "support/hook.h"

// How KkRecoverShrinkToFit finds the partition in the image and its target on the disk.

namespace {

using machine::CallKind;
using machine::CallPattern;
using testing::ElementsAre;
using testing::IsEmpty;

class RecoverSearchTest : public RecoverTest {
protected:
    void ExpectNothingBegun(int32_t status, int32_t expected) const
    {
        EXPECT_EQ(status, expected);
        EXPECT_FALSE(HasMadeAnOverlay());
        EXPECT_EQ(machine.journal.Count({.name = "OpenVirtualDisk"}), 0u);
    }
};

TEST_F(RecoverSearchTest, ThePartitionIsFoundByItsNumber)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "the partition is found by its number in the image's table");

    AddTarget(2 * kMiB);
    MakeImage({{.start = kMiB, .length = kMiB}, {.start = 3 * kMiB, .length = kMiB}}, 8 * kMiB);

    EXPECT_EQ(Recover(2), 0);
    EXPECT_TRUE(TargetHolds(2));
    EXPECT_EQ(Recover(1), 0);
    EXPECT_TRUE(TargetHolds(1));
}

TEST_F(RecoverSearchTest, TheTargetIsFoundByItsPlace)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "the target is found by its place");

    machine.AddDisk(64 * kMiB).Gpt(
        {.partitions = {{.start = kMiB, .length = kMiB}, {.start = 4 * kMiB, .length = 6 * kMiB}}});
    MakeImage(8 * kMiB);

    EXPECT_EQ(Recover(1, 4 * kMiB), 0);

    EXPECT_TRUE(TargetHolds(1, 4 * kMiB));
    EXPECT_THAT(ShrunkTo(), ElementsAre(6 * kMiB));
}

TEST_F(RecoverSearchTest, OfSeveralPartitionsInOnePlaceTheLastOneCounts)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "of several partitions in one place the last one counts");

    AddTarget(8 * kMiB);
    MakeImage(8 * kMiB);
    PretendTargetLengths({2 * kMiB, 8 * kMiB});

    EXPECT_EQ(Recover(), 0);

    EXPECT_THAT(ShrunkTo(), IsEmpty());
}

TEST_F(RecoverSearchTest, PartitionsThatAreNotThereAreRefused)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_INVALID_PARAMETER,
          "the image or the disk has no such partition; nothing is begun");

    AddTarget(4 * kMiB);
    MakeImage(8 * kMiB);

    for (const int32_t number : {0, 2, -1, 0x7FFFFFFF}) {
        ExpectNothingBegun(Recover(number), Status(0xC000000D));
        EXPECT_EQ(machine.journal.Count({.code = 0x70050}), 0u) << "the disk is not looked at";
    }
    for (const uint64_t start : {uint64_t{0}, kTargetStart + 512, ~uint64_t{0}}) {
        ExpectNothingBegun(Recover(1, start), Status(0xC000000D));
    }
    MakeImage({}, 8 * kMiB);
    ExpectNothingBegun(Recover(), Status(0xC000000D));
}

TEST_F(RecoverSearchTest, AnImageThatCannotBeInspectedIsAFailure)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_UNSUCCESSFUL,
          "the image cannot be inspected: missing, no image, a null path");

    AddTarget(4 * kMiB);
    ExpectNothingBegun(Recover(), Status(0xC0000001));
    std::ofstream(imagePath) << "no image";
    ExpectNothingBegun(Recover(), Status(0xC0000001));
    ExpectNothingBegun(api.recoverShrinkToFit(nullptr, 1, 0, kTargetStart), Status(0xC0000001));
    MakeImage(8 * kMiB);
    const CallPattern imageOpened = {.kind = CallKind::CreateFile, .object = "image.vhdx"};
    for (const uint64_t inspection : {1u, 2u}) {
        machine.faults.Clear();
        machine.faults.Fail(imageOpened, inspection, 0xC0000022);
        ExpectNothingBegun(Recover(), Status(0xC0000001));
        EXPECT_EQ(machine.journal.Count(imageOpened), inspection);
    }
}

TEST_F(RecoverSearchTest, ADiskThatCannotBeListedIsAFailure)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_UNSUCCESSFUL, "the target disk cannot be listed");

    MakeImage(8 * kMiB);
    ExpectNothingBegun(Recover(), Status(0xC0000001));
    AddTarget(4 * kMiB);
    for (const uint32_t reason : {0xC0000022u, 0xC000009Au, 0x80000005u}) {
        machine.faults.Clear();
        machine.faults.FailFrom({.code = 0x70050}, 1, reason);
        ExpectNothingBegun(Recover(), Status(0xC0000001));
    }
}

TEST_F(RecoverSearchTest, ADiskWithoutATableHasNoTarget)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_INVALID_PARAMETER, "a disk without a table has no such partition");

    machine.AddDisk(64 * kMiB);
    MakeImage(8 * kMiB);

    ExpectNothingBegun(Recover(), Status(0xC000000D));
}

TEST_F(RecoverSearchTest, BothTablesAreTakenFirst)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_NO_MEMORY, "no memory for the lists of partitions; nothing is looked at");

    AddTarget(4 * kMiB);
    MakeImage(8 * kMiB);
    for (const uint64_t nth : {1u, 2u}) {
        machine.faults.Clear();
        machine.faults.Fail({.kind = CallKind::Allocate}, nth, 0);

        ExpectNothingBegun(Recover(), Status(0xC0000017));

        EXPECT_EQ(machine.journal.Count({.kind = CallKind::CreateFile}), 0u);
        const std::vector<machine::CallRecord> blocks = machine.journal.FindAll({.kind = CallKind::Allocate});
        ASSERT_EQ(blocks.size(), nth);
        EXPECT_EQ(blocks.back().length, nth == 1 ? 6912u : 23872u);
    }
}

TEST_F(RecoverSearchTest, OnlyTheFirst64PartitionsOfAnImageAreSearched)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_INVALID_PARAMETER, "the image's 65th partition is not found");
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "the image's 64th partition is found");

    AddTarget(2 * kMiB);
    std::vector<machine::GptPartition> partitions(65);
    for (size_t i = 0; i < partitions.size(); ++i) {
        partitions[i] = {.start = kMiB + i * 64 * kKiB, .length = 64 * kKiB};
    }
    MakeImage(partitions, 8 * kMiB);

    ExpectNothingBegun(Recover(65), Status(0xC000000D));
    EXPECT_EQ(Recover(64), 0);
    EXPECT_TRUE(TargetHolds(64));
}

TEST_F(RecoverSearchTest, OnlyTheFirst64PartitionsOfADiskAreSearched)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_INVALID_PARAMETER, "the disk's 65th partition is not found");
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "the disk's 64th partition is found");

    std::vector<machine::GptPartition> partitions(65);
    for (size_t i = 0; i < partitions.size(); ++i) {
        partitions[i] = {.start = (1 + i) * kMiB, .length = kMiB};
    }
    machine.AddDisk(80 * kMiB).Gpt({.partitions = partitions});
    MakeImage(kMiB);

    ExpectNothingBegun(Recover(1, 65 * kMiB), Status(0xC000000D));
    EXPECT_EQ(Recover(1, 64 * kMiB), 0);
    EXPECT_TRUE(TargetHolds(1, 64 * kMiB));
}

TEST_F(RecoverSearchTest, AnImageThatChangesBetweenTheInspectionsIsSearchedAsFarAsBothTell)
{
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_INVALID_PARAMETER,
          "an image that changes between two looks is searched as far as both tell");

    AddTarget(2 * kMiB);
    const machine::GptPartition first = {.start = kMiB, .length = kMiB};
    const machine::GptPartition second = {.start = 3 * kMiB, .length = kMiB};
    using Table = std::vector<machine::GptPartition>;
    for (const auto& [before, after] :
         {std::pair<Table, Table>{{first, second}, {first}}, {{first}, {first, second}}}) {
        MakeImage(before, 8 * kMiB);
        size_t opens = 0;
        const Hook<&NtCreateFile> hook([&](auto... arguments) {
            const kk::ObjectAttributes* const object = std::get<2>(std::tuple(arguments...));
            const std::u16string name(object->objectName->buffer, object->objectName->length / 2);
            if (name.ends_with(u"image.vhdx") && ++opens == 2) {
                MakeImage(after, 8 * kMiB);
            }
            return Hook<&NtCreateFile>::Original(arguments...);
        });

        EXPECT_EQ(api.recoverShrinkToFit(WindowsPath(imagePath).c_str(), 2, 0, kTargetStart), Status(0xC000000D));

        EXPECT_EQ(opens, 2u);
        EXPECT_FALSE(HasMadeAnOverlay());
    }
}

}  // namespace
