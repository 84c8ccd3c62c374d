// Where an edit reads and writes, and in which order.

#include "partition/gpt_edit_fixture.h"

namespace kk {
namespace {

using GptEditOrderTest = GptEditTest;
using Trail = std::vector<std::string>;

TEST_F(GptEditOrderTest, EachCopyIsReadHeaderFirstAndWrittenArrayFirst)
{
    for (const GptEdit& edit : {Adding(200, 300), Resizing(100, 150), Removing(100)}) {
        UseGpt({100});

        EXPECT_EQ(Edit(edit), KK_STATUS_SUCCESS);
        EXPECT_EQ(Steps(), (Trail{"read 512+512", "read 512+512", "read 1024+16384", "write 1024+16384",
                                  "write 512+512", "read 1048064+512", "read 1031680+16384", "write 1031680+16384",
                                  "write 1048064+512", "flush"}));
    }
}

TEST_F(GptEditOrderTest, LargeSectorsAreReadAndWrittenWhole)
{
    UseGpt({100}, 4096);

    EXPECT_EQ(Edit(Removing(100)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Steps(),
              (Trail{"read 4096+4096", "read 4096+4096", "read 8192+16384", "write 8192+16384", "write 4096+4096",
                     "read 1044480+4096", "read 1028096+16384", "write 1028096+16384", "write 1044480+4096", "flush"}));
}

TEST_F(GptEditOrderTest, ASectorSizeOfZeroMeans512)
{
    UseGpt({100});

    EXPECT_EQ(EditGptPartition(*target, 0, Removing(100), nullptr), KK_STATUS_SUCCESS);
    EXPECT_EQ(Steps().front(), "read 512+512");
    EXPECT_EQ(Steps().at(2), "read 1024+16384");
    EXPECT_EQ(Steps().at(8), "write 1048064+512");
}

TEST_F(GptEditOrderTest, TheArrayLiesWhereEachHeaderSays)
{
    UseGpt({});
    ChangeHeader(kPrimary, [](auto& header) { header.entriesLba = 40; });
    ChangeHeader(kBackup, [](auto& header) {
        header.entriesLba = 400;
        header.entryCount = 3;
        header.entryBytes = 256;
    });
    ASSERT_TRUE(storage->Write(40 * 512, std::vector<uint8_t>(128)));
    ASSERT_TRUE(storage->Write(400 * 512, std::vector<uint8_t>(256)));

    EXPECT_EQ(Edit(Adding(500, 600)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Steps(),
              (Trail{"read 512+512", "read 512+512", "read 20480+16384", "write 20480+16384", "write 512+512",
                     "read 1048064+512", "read 204800+768", "write 204800+768", "write 1048064+512", "flush"}));
    EXPECT_EQ(Number(20480 + 32, 8), 500u);
    EXPECT_EQ(Number(204800 + 32, 8), 500u);
}

TEST_F(GptEditOrderTest, TheBackupLiesWhereThePrimarySays)
{
    UseGpt({100});
    ASSERT_TRUE(storage->Write(1000 * 512, Bytes(HeaderOffset(kBackup), 512)));
    ASSERT_TRUE(storage->Write(HeaderOffset(kBackup), std::vector<uint8_t>(512)));
    ChangeHeader(kPrimary, [](auto& header) { header.otherLba = 1000; });

    EXPECT_EQ(Edit(Removing(100)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Steps().at(5), "read 512000+512");
    EXPECT_EQ(Steps().at(8), "write 512000+512");
    EXPECT_EQ(Bytes(HeaderOffset(kBackup), 512), std::vector<uint8_t>(512));
}

TEST_F(GptEditOrderTest, AHeaderIsWrittenWhereItWasReadWhateverItSaysOfItself)
{
    UseGpt({100});
    ChangeHeader(kPrimary, [](auto& header) { header.ownLba = 77; });
    ChangeHeader(kBackup, [](auto& header) { header.ownLba = 78; });

    EXPECT_EQ(Edit(Removing(100)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Steps().at(4), "write 512+512");
    EXPECT_EQ(Steps().at(8), "write 1048064+512");
}

// The first reading of LBA 1 tells where the backup is, the second what is edited.
TEST_F(GptEditOrderTest, TheAlternateIsTheOneOfTheFirstReading)
{
    UseGpt({100});
    int reads = 0;
    device->read = [&](uint64_t offset, std::span<uint8_t> into) -> machine::IoResult {
        EXPECT_TRUE(storage->Read(offset, into));
        if (offset == 512 && ++reads == 1) {
            ChangeHeader(kPrimary, [](auto& header) {
                header.otherLba = 9;
                header.diskId = kId;
            });
        }
        return {machine::kSuccess, into.size()};
    };

    EXPECT_EQ(Edit(Removing(100)), KK_STATUS_SUCCESS);
    EXPECT_EQ(reads, 2);
    EXPECT_EQ(Steps().at(5), "read 1048064+512");
    EXPECT_EQ(Header(kPrimary).diskId, kId);
    EXPECT_EQ(Header(kPrimary).otherLba, 9u);
}

TEST_F(GptEditOrderTest, AFailingFlushIsIgnored)
{
    UseGpt({100});
    device->flushStatus = Status(0xC0000185);

    EXPECT_EQ(Edit(Removing(100)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Steps().back(), "flush");
}

TEST_F(GptEditOrderTest, SectorsAndArraysAreTheOnlyMemory)
{
    UseGpt({100});

    EXPECT_EQ(Edit(Removing(100)), KK_STATUS_SUCCESS);
    EXPECT_EQ(machine.heap.Sizes(), (std::vector<uint64_t>{512, 512, 16384, 512, 16384}));
    EXPECT_EQ(machine.heap.LiveBlocks(), 1u);  // the target itself
    EXPECT_LE(machine.heap.PeakBytes(), 512u + 16384u + machine.heap.LiveBytes());
}

TEST_F(GptEditOrderTest, SmallSectorsHaveRoomForTheStructuresAllTheSame)
{
    UseSmallSectors(128, 1000);

    EXPECT_EQ(Edit(Removing(1000)), KK_STATUS_SUCCESS);
    EXPECT_EQ(Steps().at(1), "read 128+128");
    EXPECT_EQ(Steps().at(4), "write 128+128");
    EXPECT_EQ(machine.heap.Sizes().front(), 512u);
}

}  // namespace
}  // namespace kk
