#include "machine/table_builder.h"

#include <gmock/gmock.h>

#include "machine/layout_parser.h"
#include "support/table_judges.h"
#include "tests/machine/native_calls.h"

namespace machine {
namespace {

using ::testing::HasSubstr;

const GptTable kSampleTable = {
    .partitions = {{.start = kMiB, .length = 4 * kMiB, .type = kEfiSystemType, .name = u"EFI system partition"},
                   {.start = 5 * kMiB, .length = 2 * kMiB, .type = kReservedType},
                   {.start = 8 * kMiB, .length = 8 * kMiB, .name = u"Data", .attributes = 1ull << 63, .slot = 9}}};

TEST(TableBuilderTest, SgdiskAndSfdiskAcceptAGpt)
{
    TemporaryFile file(32 * kMiB);
    FileStorage storage(file.Path());

    WriteGptTable(storage, 512, kSampleTable);

    EXPECT_EQ(ComplaintAboutGpt(file.Path()), "");
    const std::string dump = RunToolOrThrow({"sfdisk", "-d", file.Path()});
    EXPECT_THAT(dump, HasSubstr("start=        2048, size=        8192, type=C12A7328-F81F-11D2-BA4B-00A0C93EC93B"));
    EXPECT_THAT(dump, HasSubstr("name=\"EFI system partition\""));
    EXPECT_THAT(dump, HasSubstr("10 : start=       16384"));
    EXPECT_THAT(dump, HasSubstr("attrs=\"GUID:63\""));
}

TEST(TableBuilderTest, SfdiskAcceptsAnMbrWithLogicalDrives)
{
    TemporaryFile file(64 * kMiB);
    FileStorage storage(file.Path());

    WriteMbrTable(storage, 512,
                  {.partitions = {{kMiB, 8 * kMiB, 0x07, true}},
                   .logicals = {{10 * kMiB, 8 * kMiB}, {20 * kMiB, 8 * kMiB, 0x0C}, {29 * kMiB, 4 * kMiB}}});

    EXPECT_EQ(ComplaintAboutMbr(file.Path()), "");
    const std::string dump = RunToolOrThrow({"sfdisk", "-d", file.Path()});
    EXPECT_THAT(dump, HasSubstr("label-id: 0x5eed1234"));
    EXPECT_THAT(dump, HasSubstr("start=       20480, size=       16384, type=7"));
    EXPECT_THAT(dump, HasSubstr("start=       40960, size=       16384, type=c"));
    EXPECT_THAT(dump, HasSubstr("start=       59392, size=        8192, type=7"));
}

TEST(TableBuilderTest, TablesWithLargeSectorsComeBackAsTheyWereWritten)
{
    MemoryStorage storage(64 * kMiB);

    WriteGptTable(storage, 4096, kSampleTable);
    const Layout gpt = ParseLayout(storage, 4096);
    WriteMbrTable(storage, 4096, {.partitions = {{kMiB, kMiB}}, .logicals = {{8 * kMiB, 8 * kMiB}}});
    const Layout mbr = ParseLayout(storage, 4096);

    ASSERT_EQ(gpt.partitions.size(), 3u);
    EXPECT_EQ(gpt.partitions[2].startingOffset, static_cast<int64_t>(8 * kMiB));
    EXPECT_EQ(gpt.partitions[2].partitionLength, static_cast<int64_t>(8 * kMiB));
    EXPECT_EQ(gpt.partitions[2].gpt.partitionId, MadeUpPartitionId(9));
    EXPECT_EQ(gpt.header.gpt.startingUsableOffset, 6 * 4096);
    ASSERT_EQ(mbr.partitions.size(), 8u);
    EXPECT_EQ(mbr.partitions[4].startingOffset, static_cast<int64_t>(8 * kMiB));
    EXPECT_EQ(mbr.partitions[4].partitionNumber, 2u);
}

TEST(TableBuilderTest, OddEntryCountsAndSizesAreKept)
{
    MemoryStorage storage(64 * kMiB);

    WriteGptTable(storage, 512, {.partitions = {{kMiB, kMiB}}, .entryCount = 5, .entryBytes = 256});
    const Layout layout = ParseLayout(storage, 512);

    EXPECT_EQ(layout.header.gpt.maxPartitionCount, 5u);
    EXPECT_EQ(layout.partitions.size(), 1u);
}

TEST(TableBuilderTest, WhatCannotBeWrittenIsRefused)
{
    MemoryStorage storage(16 * kMiB);

    EXPECT_ANY_THROW(WriteGptTable(storage, 512, {.partitions = {{kMiB, 16 * kMiB}}}));
    EXPECT_ANY_THROW(WriteGptTable(storage, 512, {.partitions = {{kMiB + 1, kMiB}}}));
    EXPECT_ANY_THROW(WriteMbrTable(storage, 512, {.logicals = {{kMiB, kMiB}, {2 * kMiB, kMiB}}}));
}

}  // namespace
}  // namespace machine
