// What becomes of the driver's answer, honest or not.

#include "disk/layout_answer.h"

#include <algorithm>
#include <string>

#include "disk/read_disk_layout.h"

namespace kk {
namespace {

class LayoutAnswerTest : public ReadDiskLayoutTest {
protected:
    LayoutAnswerTest() { AddDisk(); }

    /// A GPT answer with `count` partitions, numbered from 1.
    static LayoutAnswer Partitions(uint32_t count)
    {
        LayoutAnswer answer(WirePartitionStyle::Gpt);
        for (uint32_t i = 1; i <= count; ++i) {
            answer.AddGpt(i, i * 4096);
        }
        return answer;
    }
};

TEST_F(LayoutAnswerTest, TheSystemsStylesBecomeThoseOfTheExports)
{
    const std::pair<uint32_t, PartitionStyle> styles[] = {
        {0, PartitionStyle::Mbr}, {1, PartitionStyle::Gpt},          {2, PartitionStyle::Raw},
        {3, PartitionStyle::Raw}, {0xFFFFFFFF, PartitionStyle::Raw},
    };
    for (const auto& [wire, expected] : styles) {
        layout_.style = PartitionStyle::Raw;
        AnswerLayout(LayoutAnswer(WirePartitionStyle(wire)).Bytes());

        EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
        EXPECT_EQ(layout_.style, expected) << wire;
    }
}

TEST_F(LayoutAnswerTest, ARawDiskHasNoPartitionsWhateverItClaims)
{
    for (const uint32_t style : {2u, 3u, 0xFFFFFFFFu}) {
        LayoutAnswer answer = Partitions(3);
        answer.head.partitionStyle = WirePartitionStyle(style);
        answer.head.gpt.diskId = {1, 2, 3, {}};
        AnswerLayout(answer.Bytes());
        layout_.style = PartitionStyle::Gpt;

        EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
        EXPECT_EQ(layout_.style, PartitionStyle::Raw);
        EXPECT_EQ(layout_.partitions.Count(), 0u);
        EXPECT_EQ(layout_.diskGuid, Guid{});
    }
}

TEST_F(LayoutAnswerTest, AGptDiskTellsItsIdentifier)
{
    LayoutAnswer answer(WirePartitionStyle::Gpt);
    answer.head.gpt.diskId = {0x01020304, 0x0506, 0x0708, {9, 10, 11, 12, 13, 14, 15, 16}};
    AnswerLayout(answer.Bytes());

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.diskGuid, answer.head.gpt.diskId);
}

TEST_F(LayoutAnswerTest, AnMbrDiskHasNoIdentifierAndItsSignatureIsNotKept)
{
    LayoutAnswer answer(WirePartitionStyle::Mbr);
    answer.head.mbr = {.signature = 0x12345678, .checkSum = 0x9ABCDEF0};
    AnswerLayout(answer.Bytes());

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.diskGuid, Guid{});
}

TEST_F(LayoutAnswerTest, AGptPartitionCarriesEverythingButAnMbrType)
{
    LayoutAnswer answer(WirePartitionStyle::Gpt);
    PartitionInformationEx& entry = answer.Add(17, int64_t{5} << 40, int64_t{3} << 33);
    entry.gpt.partitionType = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
    entry.gpt.partitionId = {21, 22, 23, {24, 25, 26, 27, 28, 29, 30, 31}};
    entry.gpt.attributes = UINT64_MAX;
    std::fill_n(entry.gpt.name, 36, u'\u00E4');
    entry.gpt.name[35] = u'Z';
    AnswerLayout(answer.Bytes());
    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);

    ASSERT_EQ(layout_.partitions.Count(), 1u);
    const PartitionEntry& partition = layout_.partitions[0];
    EXPECT_EQ(partition.number, 17u);
    EXPECT_EQ(partition.start, uint64_t{5} << 40);
    EXPECT_EQ(partition.length, uint64_t{3} << 33);
    EXPECT_EQ(partition.typeGuid, entry.gpt.partitionType);
    EXPECT_EQ(partition.idGuid, entry.gpt.partitionId);
    EXPECT_EQ(std::u16string(partition.name, 36), std::u16string(35, u'\u00E4') + u'Z');
    EXPECT_EQ(partition.mbrType, 0);
}

TEST_F(LayoutAnswerTest, AnMbrPartitionCarriesItsTypeAndNoIdentifiersOrName)
{
    LayoutAnswer answer(WirePartitionStyle::Mbr);
    PartitionInformationEx& entry = answer.Add(3, 63 * 512, 1 << 20);
    FillBytes(&entry.gpt, 0x77, sizeof(entry.gpt));
    entry.mbr.partitionType = 0x27;
    AnswerLayout(answer.Bytes());
    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);

    ASSERT_EQ(layout_.partitions.Count(), 1u);
    const PartitionEntry& partition = layout_.partitions[0];
    EXPECT_EQ(partition.number, 3u);
    EXPECT_EQ(partition.start, 63u * 512);
    EXPECT_EQ(partition.length, 1u << 20);
    EXPECT_EQ(partition.mbrType, 0x27);
    EXPECT_EQ(partition.typeGuid, Guid{});
    EXPECT_EQ(partition.idGuid, Guid{});
    EXPECT_EQ(std::u16string(partition.name, 36), std::u16string(36, u'\0'));
}

TEST_F(LayoutAnswerTest, MbrContainersAndUnusedEntriesAreLeftOut)
{
    for (uint32_t type = 0; type <= 0xFF; ++type) {
        DiskLayout layout;
        AnswerLayout(LayoutAnswer(WirePartitionStyle::Mbr).AddMbr(1, 4096, static_cast<uint8_t>(type)).Bytes());
        EXPECT_EQ(ReadDiskLayout(0, layout), KK_STATUS_SUCCESS);

        const bool isLeftOut = type == 0x00 || type == 0x05 || type == 0x0F;
        EXPECT_EQ(layout.partitions.Count(), isLeftOut ? 0u : 1u) << type;
    }
}

TEST_F(LayoutAnswerTest, GptEntriesWithoutATypeAreLeftOut)
{
    LayoutAnswer answer = Partitions(4);
    answer.partitions[0].gpt.partitionType = {};
    answer.partitions[2].gpt.partitionType = {};
    answer.partitions[3].gpt.partitionType = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};
    AnswerLayout(answer.Bytes());

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(Starts(), (std::vector<uint64_t>{2 * 4096, 4 * 4096}));
}

TEST_F(LayoutAnswerTest, TheDisksStyleDecidesHoweverItsEntriesAreMarked)
{
    LayoutAnswer gpt(WirePartitionStyle::Gpt);
    gpt.AddGpt(0x0F, 4096).partitions[0].style = WirePartitionStyle::Mbr;
    AnswerLayout(gpt.Bytes());
    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    ASSERT_EQ(layout_.partitions.Count(), 1u);
    EXPECT_EQ(layout_.partitions[0].typeGuid, gpt.partitions[0].gpt.partitionType);

    LayoutAnswer mbr(WirePartitionStyle::Mbr);
    mbr.AddMbr(1, 4096, 0x07).partitions[0].style = WirePartitionStyle::Raw;
    AnswerLayout(mbr.Bytes());
    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    ASSERT_EQ(layout_.partitions.Count(), 2u);
    EXPECT_EQ(layout_.partitions[1].mbrType, 0x07);
}

TEST_F(LayoutAnswerTest, EntriesKeepTheTablesOrder)
{
    LayoutAnswer answer(WirePartitionStyle::Mbr);
    AnswerLayout(answer.AddMbr(9, 30 << 20, 7).AddMbr(2, 10 << 20, 7).AddMbr(5, 20 << 20, 7).Bytes());

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(Starts(), (std::vector<uint64_t>{30 * kMiB, 10 * kMiB, 20 * kMiB}));
    EXPECT_EQ(layout_.partitions[0].number, 9u);
}

TEST_F(LayoutAnswerTest, OneHundredAndTwentyNineEntriesFitTheFirstBuffer)
{
    AnswerLayout(Partitions(129).Bytes());

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.partitions.Count(), 129u);
    EXPECT_EQ(layout_.partitions[128].number, 129u);
    EXPECT_EQ(LayoutCalls().size(), 1u);
}

TEST_F(LayoutAnswerTest, NoMoreEntriesAreTakenThanWereReturned)
{
    LayoutAnswer answer = Partitions(4);
    answer.head.partitionCount = 0xFFFFFFFF;
    AnswerLayout(answer.Bytes());

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.partitions.Count(), 4u);
}

TEST_F(LayoutAnswerTest, NoMoreEntriesAreTakenThanAreCounted)
{
    LayoutAnswer answer = Partitions(4);
    answer.head.partitionCount = 2;
    AnswerLayout(answer.Bytes());

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.partitions.Count(), 2u);
}

TEST_F(LayoutAnswerTest, NoEntryIsTakenThatWasReturnedInPart)
{
    const LayoutAnswer answer = Partitions(4);
    AnswerLayout(answer.FirstBytes(48 + 3 * 144 + 143));
    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.partitions.Count(), 3u);

    AnswerLayout(answer.FirstBytes(48 + 143));
    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.partitions.Count(), 3u);
}

TEST_F(LayoutAnswerTest, AnAnswerWithoutAWholeHeadHasNoEntries)
{
    const std::vector<uint8_t> bytes = Partitions(4).Bytes();
    for (const uint64_t information : {0u, 1u, 8u, 47u, 48u}) {
        OnLayout([&bytes, information](const machine::ControlRequest&) {
            return machine::ControlAnswer{.output = bytes, .information = information};
        });

        EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
        EXPECT_EQ(layout_.partitions.Count(), 0u) << information;
    }
}

TEST_F(LayoutAnswerTest, MoreBytesThanTheBufferHoldsAreNotBelieved)
{
    LayoutAnswer answer = Partitions(129);
    answer.head.partitionCount = 0xFFFFFFFF;
    for (const uint64_t information : {uint64_t{18625}, uint64_t{20000}, uint64_t{0xFFFFFFFF}}) {
        DiskLayout layout;
        OnLayout([&, information](const machine::ControlRequest&) {
            return machine::ControlAnswer{.output = answer.Bytes(), .information = information};
        });

        EXPECT_EQ(ReadDiskLayout(0, layout), KK_STATUS_SUCCESS);
        EXPECT_EQ(layout.partitions.Count(), 129u);
    }
}

TEST_F(LayoutAnswerTest, EntriesOfAnEarlierAttemptAreNotTaken)
{
    const std::vector<uint8_t> bytes = Partitions(129).Bytes();
    int attempt = 0;
    OnLayout([&](const machine::ControlRequest&) {
        machine::ControlAnswer answer = {.output = bytes};
        if (attempt++ == 0) {
            answer.status = machine::kBufferOverflow;
        } else {
            answer.output.resize(48 + 2 * 144);
        }
        return answer;
    });

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(attempt, 2);
    EXPECT_EQ(layout_.partitions.Count(), 2u);
}

TEST_F(LayoutAnswerTest, NegativeOffsetsAndLengthsAreKeptAsTheyAre)
{
    LayoutAnswer answer(WirePartitionStyle::Gpt);
    answer.AddGpt(1, -4096).partitions[0].partitionLength = -1;
    AnswerLayout(answer.Bytes());

    EXPECT_EQ(Read(), KK_STATUS_SUCCESS);
    EXPECT_EQ(layout_.partitions[0].start, UINT64_MAX - 4095);
    EXPECT_EQ(layout_.partitions[0].length, UINT64_MAX);
}

}  // namespace
}  // namespace kk
