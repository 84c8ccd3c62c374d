// How often and with which buffers a disk is asked for its layout, and what happens when memory runs out.

#include <string>

#include "disk/read_disk_layout.h"

namespace kk {
namespace {

const machine::CallPattern kAllocations = {.kind = machine::CallKind::Allocate};

using LayoutRequestTest = ReadDiskLayoutTest;

TEST_F(LayoutRequestTest, TriesSixTimesWithDoubledBuffersAndReportsTheLastFailure)
{
    AddDisk();
    for (uint32_t attempt = 1; attempt <= 6; ++attempt) {
        machine.faults.Fail({.code = 0x70050}, attempt, 0xC0000100 + attempt);
    }

    EXPECT_EQ(Read(), Status(0xC0000106));
    EXPECT_EQ(LayoutLengths(), (std::vector<uint64_t>{18624, 37248, 74496, 148992, 297984, 595968}));
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Close}), 1u);
}

TEST_F(LayoutRequestTest, RetriesAfterAnyFailure)
{
    for (const uint32_t failure : {0x80000005u, 0xC0000023u, 0xC0000004u, 0xC0000185u, 0xC0000010u}) {
        machine.RemoveDisk(0);
        AddDisk();
        machine.journal.Clear();
        machine.faults.Clear();
        machine.faults.Fail({.code = 0x70050}, 1, failure);

        EXPECT_EQ(Read(), KK_STATUS_SUCCESS) << std::hex << failure;
        EXPECT_EQ(LayoutLengths(), (std::vector<uint64_t>{18624, 37248}));
    }
}

TEST_F(LayoutRequestTest, TheSixthAttemptMaySucceed)
{
    machine::Disk& disk = AddDisk().Gpt({.partitions = {{.start = 1 * kMiB, .length = 2 * kMiB}}});
    disk.behaviour.layoutFailures = 5;

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(LayoutLengths().back(), 595968u);
    EXPECT_EQ(layout_.partitions.Count(), 1u);
}

TEST_F(LayoutRequestTest, ReportsThatTheFirstBufferCannotBeHad)
{
    AddDisk();
    machine.faults.Fail(kAllocations, 2, 0);

    EXPECT_EQ(Read(), Status(0xC0000017));
    EXPECT_TRUE(LayoutCalls().empty());
}

TEST_F(LayoutRequestTest, ReportsThatTheBufferCannotGrow)
{
    AddDisk().behaviour.layoutFailures = 6;
    machine.faults.Fail(kAllocations, 4, 0);

    EXPECT_EQ(Read(), Status(0xC0000017));
    EXPECT_EQ(LayoutLengths(), (std::vector<uint64_t>{18624, 37248}));
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Close}), 1u);
}

TEST_F(LayoutRequestTest, GivesZeroedBuffersToEveryAttempt)
{
    AddDisk();
    OnLayout([this](const machine::ControlRequest& request) {
        // The answer's first bytes alone come; the rest of the buffer is what the caller passed.
        const uint32_t attempts = static_cast<uint32_t>(LayoutCalls().size()) + 1;
        LayoutAnswer answer(WirePartitionStyle::Gpt);
        answer.head.partitionCount = 129;
        return machine::ControlAnswer{.status = attempts < 3 ? machine::kBufferTooSmall : machine::kSuccess,
                                      .output = answer.FirstBytes(8),
                                      .information = request.outputRoom};
    });

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(LayoutLengths().size(), 3u);
    EXPECT_EQ(layout_.partitions.Count(), 0u);
    EXPECT_EQ(layout_.diskGuid, Guid{});
}

TEST_F(LayoutRequestTest, ClosesTheDiskBeforeItKeepsThePartitions)
{
    AddDisk().Gpt({.partitions = {{.start = 1 * kMiB, .length = 2 * kMiB}}});
    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);

    const auto allocations = machine.journal.FindAll(kAllocations);
    ASSERT_EQ(allocations.size(), 3u);
    EXPECT_LT(machine.journal.First({.kind = machine::CallKind::Close})->index, allocations[2].index);
}

TEST_F(LayoutRequestTest, AppendsToThePartitionsThatAreThere)
{
    AddDisk().Gpt({.partitions = {{.start = 1 * kMiB, .length = 2 * kMiB}, {.start = 4 * kMiB, .length = 2 * kMiB}}});

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(Starts(), (std::vector<uint64_t>{1 * kMiB, 4 * kMiB, 1 * kMiB, 4 * kMiB}));
}

TEST_F(LayoutRequestTest, KeepsWhatItAppendedWhenMemoryRunsOut)
{
    LayoutAnswer answer(WirePartitionStyle::Gpt);
    for (uint32_t i = 1; i <= 9; ++i) {
        answer.AddGpt(i, i * 4096);
    }
    AddDisk();
    AnswerLayout(answer.Bytes());
    machine.faults.Fail(kAllocations, 4, 0);

    EXPECT_EQ(Read(), Status(0xC0000017));
    EXPECT_EQ(layout_.style, PartitionStyle::Gpt);
    EXPECT_EQ(layout_.partitions.Count(), 8u);
    EXPECT_EQ(layout_.partitions[7].number, 8u);
}

TEST_F(LayoutRequestTest, ReportsThatTheFirstPartitionCannotBeKept)
{
    AddDisk().Mbr({.partitions = {{.start = 1 * kMiB, .length = 2 * kMiB}}});
    machine.faults.Fail(kAllocations, 3, 0);

    EXPECT_EQ(Read(), Status(0xC0000017));
    EXPECT_EQ(layout_.partitions.Count(), 0u);
    EXPECT_EQ(layout_.diskSize, 64 * kMiB);
}

TEST_F(LayoutRequestTest, ThePartitionsGrowFromEightByDoubling)
{
    machine::GptTable table;
    for (uint64_t i = 0; i < 17; ++i) {
        table.partitions.push_back({.start = (i + 1) * kMiB, .length = 1 * kMiB});
    }
    AddDisk().Gpt(table);
    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);

    const std::vector<uint64_t>& sizes = machine.heap.Sizes();
    ASSERT_EQ(sizes.size(), 5u);
    EXPECT_EQ(sizes[1], 18624u);
    EXPECT_EQ(sizes[2], 8 * sizeof(PartitionEntry));
    EXPECT_EQ(sizes[3], 16 * sizeof(PartitionEntry));
    EXPECT_EQ(sizes[4], 32 * sizeof(PartitionEntry));
}

}  // namespace
}  // namespace kk
