#include "exports/support/inspect_image_test.h"
#include "support/sweep.h"

// Files that are no images, tables that cannot be read, calls that fail.

namespace {

using machine::CallKind;
using vhdx::LittleEndian;

class InspectFailureTest : public InspectImageTest {};

TEST_F(InspectFailureTest, WithoutAPathNothingIsDone)
{
    SHOWS(KkInspectImage, KK_STATUS_INVALID_PARAMETER, "the path is null; the count is 0, and no file is looked at");

    count = 5;

    EXPECT_EQ(api.inspectImage(nullptr, nullptr, nullptr, 0, &count), KK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(api.inspectImage(nullptr, nullptr, nullptr, 0, nullptr), KK_STATUS_INVALID_PARAMETER);
    EXPECT_TRUE(machine.journal.Records().empty());
}

TEST_F(InspectFailureTest, AFileThatIsNotThereIsTheOpensFailure)
{
    SHOWS(KkInspectImage, 0xC0000034,
          "the status of a file that does not open is passed on; only the count is written");

    EXPECT_EQ(InspectFile(), Status(0xC0000034));
    ExpectNothingButCountWritten();
}

TEST_F(InspectFailureTest, OtherFilesAreMalformed)
{
    SHOWS(KkInspectImage, KK_STATUS_REGISTRY_CORRUPT, "the file is no VHDX");

    for (const std::string format : {"vpc", "raw", "qcow2"}) {
        Shell("qemu-img create -q -f " + format + " " + file.string() + " 16M");

        EXPECT_EQ(InspectFile(), kMalformed) << format;
        ExpectNothingButCountWritten();
    }
}

TEST_F(InspectFailureTest, MalformedImagesAreRefused)
{
    SHOWS(KkInspectImage, KK_STATUS_REGISTRY_CORRUPT,
          "the VHDX is damaged: its mark, its region tables, its metadata or the disk's size");

    PutTwoGptPartitions();

    EXPECT_EQ(Inspect(Image().FileBytes(3, {'X'})), kMalformed);
    ExpectNothingButCountWritten();
    EXPECT_EQ(Inspect(Image().Regions({})), kMalformed);
    EXPECT_EQ(Inspect(Image().FileBytes(vhdx::kMetadataOffset, {'X'})), kMalformed);
    EXPECT_EQ(Inspect(Image().WithoutItem(vhdx::kFileParameters)), kMalformed);
    EXPECT_EQ(Inspect(Image().Item({vhdx::kVirtualDiskSize, LittleEndian(0, 8)})), kMalformed);
    ExpectNothingButCountWritten();
}

TEST_F(InspectFailureTest, OpensThroughTheSecondRegionTable)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "the second region table serves when the first one is damaged");

    PutTwoGptPartitions();

    EXPECT_EQ(Inspect(Image().FileBytes(vhdx::kRegionTableOffsets[0], Bytes(vhdx::kRegionTableBytes))), 0);
    EXPECT_EQ(count, 2u);
}

TEST_F(InspectFailureTest, AnEmptyDiskIsMalformed)
{
    SHOWS(KkInspectImage, KK_STATUS_REGISTRY_CORRUPT, "the disk in the image has no table");

    EXPECT_EQ(Inspect(Image()), kMalformed);
    ExpectNothingButCountWritten();
}

TEST_F(InspectFailureTest, AProtectiveMbrAloneIsMalformed)
{
    SHOWS(KkInspectImage, KK_STATUS_REGISTRY_CORRUPT, "the disk in the image has only an MBR that protects a GPT");

    PutMbrSlot(1, 0xEE, 1, 0xFFFFFFFF);

    EXPECT_EQ(Inspect(Image()), kMalformed);
    ExpectNothingButCountWritten();
}

TEST_F(InspectFailureTest, AGptOfUnusualNumbersHasNoPartitionsAndNoMbrInItsPlace)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS,
          "a GPT with 0 or more than 4096 entries, or entries below 128 bytes, has no partitions");

    PutTwoGptPartitions();
    PutMbrSlot(2, 0x07, 2048, 2048);
    for (const auto& [offset, value] : {std::pair<uint64_t, uint64_t>{80, 0}, {80, 4097}, {84, 127}, {84, 0}}) {
        PutTwoGptPartitions();
        Put(512 + offset, LittleEndian(value, 4));

        ASSERT_EQ(Inspect(Image()), 0);
        EXPECT_EQ(count, 0u);
        EXPECT_EQ(Style(), kGptStyle);
        EXPECT_EQ(Slice(Info(), 16, 20), BytesOf(machine::kSampleDiskId) + LittleEndian(0, 4));
        EXPECT_TRUE(IsDirt(recordBytes));
    }
}

TEST_F(InspectFailureTest, TheGptCountsWhenBothTablesHavePartitions)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "when GPT and MBR both have partitions the GPT counts");

    PutTwoGptPartitions();
    PutMbrSlot(2, 0x07, 2048, 2048);

    ASSERT_EQ(Inspect(Image()), 0);
    EXPECT_EQ(Style(), kGptStyle);
    EXPECT_EQ(count, 2u);
}

TEST_F(InspectFailureTest, AnyFailureOfTheGptLeadsToTheMbr)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "when the GPT cannot be read the MBR's partitions are told");

    PutTwoGptPartitions();
    PutMbrSlot(2, 0x07, 2048, 2048);
    Image().Save(file);
    machine.journal.Clear();
    ASSERT_EQ(InspectFile(), 0);
    const uint64_t reads = machine.journal.Count({CallKind::ReadFile});
    const uint64_t allocations = machine.journal.Count({CallKind::Allocate});
    const auto expectMbr = [&] {
        EXPECT_EQ(InspectFile(), 0);
        EXPECT_EQ(Style(), kMbrStyle);
        EXPECT_EQ(count, 1u);
        EXPECT_EQ(Slice(Info(), 16, 16), Bytes(16)) << "the disk's GUID had been read";
        EXPECT_EQ(Slice(Record(0), 0, 4), LittleEndian(2, 4));
        EXPECT_TRUE(IsDirt(Record(1)));
    };

    // The header and the array, each behind its entry of the block table.
    for (uint64_t nth = reads - 3; nth <= reads; ++nth) {
        machine.faults.Clear();
        machine.faults.Fail({CallKind::ReadFile}, nth, 0xC000009C);
        expectMbr();
    }
    // Sector, array and list.
    for (uint64_t nth = allocations - 2; nth <= allocations; ++nth) {
        machine.faults.Clear();
        machine.faults.Fail({CallKind::Allocate}, nth, 0);
        expectMbr();
    }
}

TEST_F(InspectFailureTest, PartitionsOfAGptThatFailsLaterAreForgotten)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS,
          "partitions of a GPT that fails later are forgotten when the MBR takes its place");

    machine::GptTable table;
    for (uint64_t i = 0; i < 9; ++i) {
        table.partitions.push_back({.start = (i + 1) * kMiB, .length = kMiB});
    }
    PutGpt(table);
    PutMbrSlot(3, 0x07, 2048, 2048);
    Image().Save(file);
    machine.journal.Clear();
    ASSERT_EQ(InspectFile(), 0);
    ASSERT_EQ(count, 9u);
    machine.faults.Fail({CallKind::Allocate}, machine.journal.Count({CallKind::Allocate}), 0);

    EXPECT_EQ(InspectFile(), 0);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(Slice(Record(0), 0, 4), LittleEndian(3, 4));
}

TEST_F(InspectFailureTest, WhenBothTablesFailTheGptsFailureIsTold)
{
    SHOWS(KkInspectImage, 0xC000009C, "when both tables fail the failure of the GPT's array is told");
    SHOWS(KkInspectImage, 0xC000009D, "when both tables fail the failure of the GPT's header is told");

    PutTwoGptPartitions();
    Image().Save(file);
    machine.journal.Clear();
    ASSERT_EQ(InspectFile(), 0);
    const uint64_t reads = machine.journal.Count({CallKind::ReadFile});

    machine.faults.Fail({CallKind::ReadFile}, reads, 0xC000009C);
    EXPECT_EQ(InspectFile(), Status(0xC000009C)) << "the MBR is malformed: it is only a protective one";
    ExpectNothingButCountWritten();

    machine.faults.Clear();
    machine.faults.Fail({CallKind::ReadFile}, reads - 1, 0xC000009D);
    machine.faults.Fail({CallKind::ReadFile}, reads + 1, 0xC000009E);
    EXPECT_EQ(InspectFile(), Status(0xC000009D));
}

TEST_F(InspectFailureTest, WithoutAGptAFailingMbrReadIsNotTold)
{
    SHOWS(KkInspectImage, KK_STATUS_REGISTRY_CORRUPT, "without a GPT the failing read of the MBR is not told");

    PutMbrSlot(1, 0x07, 2048, 2048);
    Image().Save(file);
    machine.journal.Clear();
    ASSERT_EQ(InspectFile(), 0);
    machine.faults.Fail({CallKind::ReadFile}, machine.journal.Count({CallKind::ReadFile}), 0xC000009C);

    EXPECT_EQ(InspectFile(), kMalformed);
    ExpectNothingButCountWritten();
}

TEST_F(InspectFailureTest, AnArrayThatDoesNotFitIntoMemoryIsTold)
{
    SHOWS(KkInspectImage, KK_STATUS_UNSUCCESSFUL, "the GPT claims to be 4 GiB or larger");

    PutTwoGptPartitions();
    Put(512 + 80, LittleEndian(4096, 4));
    Put(512 + 84, LittleEndian(0x100000, 4));

    EXPECT_EQ(Inspect(Image()), KK_STATUS_UNSUCCESSFUL);
    ExpectNothingButCountWritten();
}

TEST_F(InspectFailureTest, ATableInABlockBeyondTheFilesEndIsTold)
{
    SHOWS(KkInspectImage, KK_STATUS_END_OF_FILE, "the table lies beyond the file's end");

    PutTwoGptPartitions();

    EXPECT_EQ(Inspect(Image().Entry(0, uint64_t{1} << 45 | vhdx::kFullyPresent)), KK_STATUS_END_OF_FILE);
    ExpectNothingButCountWritten();
}

TEST_F(InspectFailureTest, ATableInABlockThatIsNotFullyPresentIsNone)
{
    SHOWS(KkInspectImage, KK_STATUS_REGISTRY_CORRUPT,
          "the table lies in a block that is not wholly present, which reads as zeros");

    PutTwoGptPartitions();
    for (const uint64_t state : {0u, 1u, 2u, 3u, 4u, 5u, 7u}) {
        EXPECT_EQ(Inspect(Image().State(0, state)), kMalformed) << state;
    }
}

TEST_F(InspectFailureTest, ASectorSizeThatHoldsNoTableIsMalformed)
{
    SHOWS(KkInspectImage, KK_STATUS_REGISTRY_CORRUPT, "the sector size is too small for a table");

    PutTwoGptPartitions();
    PutMbrSlot(2, 0x07, 2048, 2048);
    for (const uint32_t size : {0u, 1u, 91u, 511u}) {
        EXPECT_EQ(Inspect(Image().Item({vhdx::kLogicalSectorSize, LittleEndian(size, 4)})), kMalformed) << size;
        ExpectNothingButCountWritten();
    }
}

/// What the first failing call means for the whole.
int32_t ExpectedStatus(const machine::Journal& journal, FaultMode mode)
{
    const std::vector<machine::CallRecord>& records = journal.Records();
    const auto failed = std::ranges::find_if(records, [](const machine::CallRecord& call) { return call.struck; });
    if (failed == records.end()) {
        return 0;
    }
    if (failed->kind == CallKind::Allocate) {
        const bool isFirst = CallsBefore(journal, *failed, {.kind = CallKind::Allocate}) == 0;
        return isFirst ? KK_STATUS_NO_MEMORY : KK_STATUS_UNSUCCESSFUL;
    }
    const bool isOfOneCall = mode == FaultMode::OneCall;
    if (failed->kind == CallKind::QueryInformation) {
        return isOfOneCall ? 0 : KK_STATUS_UNSUCCESSFUL;  // the file's size may stay unknown; memory comes next
    }
    if (failed->kind == CallKind::ReadFile && failed->offset == vhdx::kRegionTableOffsets[0]) {
        return isOfOneCall ? 0 : kMalformed;
    }
    return static_cast<int32_t>(failed->result);
}

TEST_F(InspectFailureTest, EveryFailingCallIsToldAndNothingIsLeftOpen)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "a failing question for the file's size does not matter");
    SHOWS(KkInspectImage, KK_STATUS_NO_MEMORY, "no memory for the open file");
    SHOWS(KkInspectImage, KK_STATUS_UNSUCCESSFUL, "no memory for anything later");
    SHOWS(KkInspectImage, KK_STATUS_REGISTRY_CORRUPT, "neither of the two region tables can be read");

    PutTwoGptPartitions();
    Image().Save(file);
    for (const FaultMode mode : {FaultMode::OneCall, FaultMode::ThatCallAndAllLater}) {
        const uint64_t calls = SweepFailingCalls(
            machine, mode, [&] { return InspectFile(); },
            [&](const machine::CallRecord*, int32_t status) {
                EXPECT_EQ(status, ExpectedStatus(machine.journal, mode));
                if (status < 0) {
                    ExpectNothingButCountWritten();
                } else {
                    EXPECT_EQ(count, 2u);
                    EXPECT_EQ(Style(), kGptStyle);
                }
            });
        EXPECT_GE(calls, 12u);
    }
}

}  // namespace
