#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "fake_kit.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class BackupTest : public CommandLineTest {
protected:
    BackupTest()
    {
        for (const uint32_t number : {1u, 3u}) {
            KkPartitionInfo partition = {};
            partition.number = number;
            partition.length = 8ull << 20;
            library.partitions.push_back(partition);
        }
        library.backupResult = BackupResult{.snapshotsRequested = 1,
                                            .snapshotsUsed = 1,
                                            .partitionsCopied = 15,
                                            .reserved12 = 0,
                                            .bytesCopied = 3ull << 20,
                                            .snapshotUsedBlockCopies = 1,
                                            .snapshotWholeCopies = 2,
                                            .liveUsedBlockCopies = 3,
                                            .liveWholeCopies = 4,
                                            .rawDiskCopies = 5,
                                            .reserved44 = 0};
    }

    ~BackupTest() override { std::filesystem::remove(image); }

    /// A path where no file is.
    std::string image = PathOfThisTest(".vhdx");
};

TEST_F(BackupTest, WithoutOptionsTheWholeDiskIsBackedUpAlone)
{
    EXPECT_EQ(Run({"backup", "7", "x.vhdx"}), 0);

    ASSERT_EQ(library.backups.size(), 1u);
    const BackupCall& call = library.backups[0];
    EXPECT_EQ(call.disk, 7u);
    EXPECT_EQ(call.image, u"Z:\\x.vhdx");
    EXPECT_FALSE(call.hasPartitionNumbers);
    EXPECT_EQ(call.partitions.size(), 0u);
    EXPECT_EQ(call.usedBlocksOnly, 0u);
    EXPECT_EQ(call.omitRemove, 0u);
    EXPECT_EQ(call.useSnapshots, 0u);
    EXPECT_EQ(call.setId, "");
    EXPECT_EQ(call.setIndex, 0u);
    EXPECT_EQ(call.setCount, 1u);
    EXPECT_EQ(call.compact, 0u);
    EXPECT_TRUE(library.listedDisks.empty()) << "a listing is costly and nobody asked for it";
}

TEST_F(BackupTest, EveryOptionReachesItsOwnArgument)
{
    EXPECT_EQ(Run({"backup", "--partitions", "3,1", "0", "x"}), 0);
    EXPECT_EQ(Run({"backup", "--used-blocks", "0", "x"}), 0);
    EXPECT_EQ(Run({"backup", "--remove-omitted", "0", "x"}), 0);
    EXPECT_EQ(Run({"backup", "--snapshots", "0", "x"}), 0);
    EXPECT_EQ(Run({"backup", "--set-id", "nightly", "0", "x"}), 0);
    EXPECT_EQ(Run({"backup", "--set-index", "2", "0", "x"}), 0);
    EXPECT_EQ(Run({"backup", "--set-count", "4", "0", "x"}), 0);
    EXPECT_EQ(Run({"backup", "--compact", "0", "x"}), 0);

    ASSERT_EQ(library.backups.size(), 8u);
    EXPECT_THAT(library.backups[0].partitions, ElementsAre(3, 1));
    EXPECT_EQ(library.backups[1].usedBlocksOnly, 1u);
    EXPECT_EQ(library.backups[2].omitRemove, 1u);
    EXPECT_EQ(library.backups[3].useSnapshots, 1u);
    EXPECT_EQ(library.backups[4].setId, "nightly");
    EXPECT_EQ(library.backups[5].setIndex, 2u);
    EXPECT_EQ(library.backups[6].setCount, 4u);
    EXPECT_EQ(library.backups[7].compact, 1u);
    uint32_t flagsSet = 0;
    for (const BackupCall& call : library.backups) {
        flagsSet += call.usedBlocksOnly + call.omitRemove + call.useSnapshots + call.compact;
    }
    EXPECT_EQ(flagsSet, 4u);
}

TEST_F(BackupTest, TheReportTellsWhereTheDataCameFrom)
{
    EXPECT_EQ(Run({"backup", "0", "x.vhdx"}), 0);

    EXPECT_EQ(out, "Image       x.vhdx\n"
                   "Manifest    x.vhdx.json\n"
                   "Copied      3.0 MiB (3145728 bytes)\n"
                   "Snapshots   used\n"
                   "Partitions  15\n"
                   "  1 from a snapshot, used clusters only\n"
                   "  2 from a snapshot, whole\n"
                   "  3 from the live volume, used clusters only\n"
                   "  4 from the live volume, whole\n"
                   "  5 straight from the disk\n");
    EXPECT_EQ(err, "");
}

TEST_F(BackupTest, JsonHasEveryField)
{
    EXPECT_EQ(Run({"--json", "backup", "0", "x.vhdx"}), 0);

    EXPECT_EQ(nlohmann::ordered_json::parse(out).dump(),
              R"({"disk":0,"image":"x.vhdx","manifest":"x.vhdx.json","snapshotsRequested":true,"snapshotsUsed":true,)"
              R"("partitionsCopied":15,"bytesCopied":3145728,"snapshotUsedBlockCopies":1,"snapshotWholeCopies":2,)"
              R"("liveUsedBlockCopies":3,"liveWholeCopies":4,"rawDiskCopies":5})");
}

TEST_F(BackupTest, WrongArgumentsNeverReachTheLibrary)
{
    const std::vector<std::vector<std::string>> wrong = {
        {"backup"},
        {"backup", "0"},
        {"backup", "0", "x", "--partitions", ""},
        {"backup", "0", "x", "--partitions", "1,"},
        {"backup", "0", "x", "--partitions", "-1"},
        {"backup", "0", "x", "--partitions", "1 3"},
        {"backup", "0", "x", "--partitions", "4294967296"},
        {"backup", "0", "x", "--set-id", std::string(64, 'i')},
        {"backup", "0", "nowhere"},
    };
    for (const std::vector<std::string>& arguments : wrong) {
        EXPECT_EQ(Run(arguments), 2) << testing::PrintToString(arguments);
    }
    EXPECT_TRUE(library.backups.empty());
}

TEST_F(BackupTest, APartitionThatTheDiskLacksIsRefused)
{
    EXPECT_EQ(Run({"backup", "0", "x", "--partitions", "1,2"}), 2);

    EXPECT_EQ(err, "kkctl: disk 0 has no partition 2\n");
    EXPECT_TRUE(library.backups.empty());
}

TEST_F(BackupTest, WhenTheListingFailsTheBackupItselfTellsWhy)
{
    library.partitionsStatus = KK_STATUS_NO_MEMORY;
    library.backupStatus = KK_STATUS_NOT_SUPPORTED;
    library.backupResult.reset();

    EXPECT_EQ(Run({"backup", "0", image, "--partitions", "2"}), 1);

    EXPECT_THAT(err, HasSubstr("backing up disk 0: 0xC00000BB KK_STATUS_NOT_SUPPORTED"));
}

TEST_F(BackupTest, AnImageThatExistsIsNamedAsTheReason)
{
    std::ofstream(image) << "precious";
    library.backupStatus = KK_STATUS_UNSUCCESSFUL;
    library.backupResult.reset();

    EXPECT_EQ(Run({"backup", "0", image}), 1);

    EXPECT_THAT(err, HasSubstr("0xC0000001 KK_STATUS_UNSUCCESSFUL"));
    EXPECT_THAT(err, HasSubstr(image + " exists already; a backup never overwrites a file"));
    EXPECT_THAT(err, Not(HasSubstr("delete it")));
}

TEST_F(BackupTest, AHalfWrittenImageIsNamedForDeletion)
{
    library.createdFile = image;
    library.backupStatus = KK_STATUS_END_OF_FILE;
    library.backupResult.reset();

    EXPECT_EQ(Run({"backup", "0", image}), 1);

    EXPECT_EQ(out, "");
    EXPECT_THAT(err, HasSubstr(image + " is incomplete; delete it"));
}

TEST_F(BackupTest, ACompleteImageThatStaysAttachedIsReportedAndStillAFailure)
{
    library.createdFile = image;
    library.backupStatus = KK_STATUS_UNSUCCESSFUL;

    EXPECT_EQ(Run({"backup", "0", image}), 1);

    EXPECT_THAT(out, HasSubstr("Copied      3.0 MiB"));
    EXPECT_THAT(err, HasSubstr("the backup is complete, but the image could not be detached"));
    EXPECT_THAT(err, Not(HasSubstr("delete it")));
}

TEST_F(BackupTest, ATerminalSeesProgressAgainstTheChosenPartitions)
{
    errorIsTerminal = true;

    EXPECT_EQ(Run({"backup", "0", image, "--partitions", "1"}), 0);
    EXPECT_THAT(err, HasSubstr("3.0 MiB of 8.0 MiB (37 %)"));
    EXPECT_EQ(Run({"backup", "0", image, "--used-blocks"}), 0);
    EXPECT_THAT(err, HasSubstr("3.0 MiB of at most 16.0 MiB (18 %)"));
    EXPECT_TRUE(err.ends_with(" \r")) << "the line is wiped out in the end";
}
