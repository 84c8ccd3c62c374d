// Edits of tables of several makers, judged by programs that are not ours.

#include "partition/edited_disk.h"

namespace kk {
namespace {

using Ranges = std::vector<std::pair<uint64_t, uint64_t>>;

constexpr char kBasicData[] = "ebd0a0a2-b9e5-4433-87c0-68b6b72699c7";
/// Partitions of 2 MiB at 1 MiB and of 1 MiB at 8 MiB, in the first two slots.
constexpr char kSgdisk[] = "sgdisk -n 1:2048:6143 -t 1:0700 -n 2:16384:18431 -t 2:0700 FILE";
constexpr char kSgdiskWith256Entries[] = "sgdisk -S 256 -n 1:2048:6143 -t 1:0700 -n 2:16384:18431 -t 2:0700 FILE";
constexpr char kSfdiskGpt[] =
    "printf 'label: gpt\\nfirst-lba: 34\\nstart=2048, size=4096, type=EBD0A0A2-B9E5-4433-87C0-68B6B72699C7\\n"
    "start=16384, size=2048, type=EBD0A0A2-B9E5-4433-87C0-68B6B72699C7\\n' | sfdisk -q FILE";
constexpr char kPartedGpt[] = "parted -s FILE mklabel gpt mkpart a ntfs 2048s 6143s mkpart b ntfs 16384s 18431s";
constexpr char kFdiskGptOf4096[] =
    "printf 'g\\nn\\n1\\n256\\n767\\nn\\n2\\n2048\\n2303\\nt\\n1\\n11\\nt\\n2\\n11\\nw\\n' | "
    "fdisk -w always -b 4096 FILE";
constexpr char kSfdiskMbr[] =
    "printf 'label: dos\\nstart=2048, size=4096, type=7\\nstart=16384, size=2048, type=7\\n' | sfdisk -q FILE";
constexpr char kPartedMbr[] =
    "parted -s FILE mklabel msdos mkpart primary ntfs 2048s 6143s mkpart primary ntfs 16384s 18431s";
constexpr char kFdiskMbrOf4096[] =
    "printf 'o\\nn\\np\\n1\\n256\\n767\\nn\\np\\n2\\n2048\\n2303\\nt\\n1\\n7\\nt\\n2\\n7\\nw\\n' "
    "| fdisk -w always -b 4096 FILE";

/// Disks that begin with those two partitions.
class EditedDiskJudgesTest : public EditedDiskTest {
protected:
    /// A disk of the machine's own builders.
    void UseBuiltDisk(PartitionStyle wanted, uint32_t bytesInSector)
    {
        if (wanted == PartitionStyle::Gpt) {
            UseGpt({.partitions = {{.start = 1 * kMiB, .length = 2 * kMiB}, {.start = 8 * kMiB, .length = 1 * kMiB}}},
                   bytesInSector);
        } else {
            UseMbr({.partitions = {{.start = 1 * kMiB, .length = 2 * kMiB}, {.start = 8 * kMiB, .length = 1 * kMiB}}},
                   bytesInSector);
        }
    }

    /// A line of PartitionsForOthers, for bounds in bytes.
    std::string Line(uint32_t slot, uint64_t start, uint64_t length, bool isNew = false) const
    {
        const bool isGpt = style == PartitionStyle::Gpt;
        return std::to_string(slot) + " " + std::to_string(start / sectorSize) + " " +
               std::to_string(length / sectorSize) + " " + (isGpt ? kBasicData : "0x7") +
               (isGpt && isNew ? " Basic data partition" : "") + "\n";
    }

    /// Each kind of edit in its turn; after each of them everybody agrees about the table.
    void EditAndJudge()
    {
        ASSERT_EQ(Layout(), (Ranges{{1 * kMiB, 2 * kMiB}, {8 * kMiB, 1 * kMiB}}));

        EXPECT_EQ(Add(4 * kMiB, 3 * kMiB), KK_STATUS_SUCCESS);
        EXPECT_EQ(number, 3u);
        ExpectSound();
        EXPECT_EQ(Layout(), (Ranges{{1 * kMiB, 2 * kMiB}, {8 * kMiB, 1 * kMiB}, {4 * kMiB, 3 * kMiB}}));

        EXPECT_EQ(Resize(8 * kMiB, 5 * kMiB), KK_STATUS_SUCCESS);
        ExpectSound();
        EXPECT_EQ(Layout(), (Ranges{{1 * kMiB, 2 * kMiB}, {8 * kMiB, 5 * kMiB}, {4 * kMiB, 3 * kMiB}}));

        EXPECT_EQ(Remove(1 * kMiB), KK_STATUS_SUCCESS);
        ExpectSound();
        EXPECT_EQ(Layout(), (Ranges{{8 * kMiB, 5 * kMiB}, {4 * kMiB, 3 * kMiB}}));

        EXPECT_EQ(Add(2 * kMiB, 1 * kMiB), KK_STATUS_SUCCESS);
        EXPECT_EQ(number, 1u);
        ExpectSound();
        EXPECT_EQ(Layout(), (Ranges{{2 * kMiB, 1 * kMiB}, {8 * kMiB, 5 * kMiB}, {4 * kMiB, 3 * kMiB}}));
    }
};

TEST_F(EditedDiskJudgesTest, AGptOfAnyMakerStaysSound)
{
    for (const char* const maker : {kSgdisk, kSgdiskWith256Entries, kSfdiskGpt, kPartedGpt}) {
        SCOPED_TRACE(maker);
        UseDiskBy(maker);
        ASSERT_EQ(style, PartitionStyle::Gpt);
        EditAndJudge();
    }
    UseBuiltDisk(PartitionStyle::Gpt, 512);
    EditAndJudge();
}

TEST_F(EditedDiskJudgesTest, AGptOfLargeSectorsStaysSound)
{
    UseDiskBy(kFdiskGptOf4096, 4096);
    EditAndJudge();
    UseBuiltDisk(PartitionStyle::Gpt, 4096);
    EditAndJudge();
}

TEST_F(EditedDiskJudgesTest, AnMbrOfAnyMakerStaysSound)
{
    for (const char* const maker : {kSfdiskMbr, kPartedMbr}) {
        SCOPED_TRACE(maker);
        UseDiskBy(maker);
        ASSERT_EQ(style, PartitionStyle::Mbr);
        EditAndJudge();
    }
    UseBuiltDisk(PartitionStyle::Mbr, 512);
    EditAndJudge();
}

TEST_F(EditedDiskJudgesTest, AnMbrOfLargeSectorsStaysSound)
{
    UseDiskBy(kFdiskMbrOf4096, 4096);
    EditAndJudge();
    UseBuiltDisk(PartitionStyle::Mbr, 4096);
    EditAndJudge();
}

TEST_F(EditedDiskJudgesTest, AnotherReaderFindsWhatWasEdited)
{
    for (const uint32_t bytes : {512u, 4096u}) {
        for (const PartitionStyle wanted : {PartitionStyle::Gpt, PartitionStyle::Mbr}) {
            UseBuiltDisk(wanted, bytes);
            EXPECT_EQ(Add(4 * kMiB, 3 * kMiB), KK_STATUS_SUCCESS);
            EXPECT_EQ(Resize(8 * kMiB, 5 * kMiB), KK_STATUS_SUCCESS);
            EXPECT_EQ(Remove(1 * kMiB), KK_STATUS_SUCCESS);

            EXPECT_EQ(PartitionsForOthers(file, bytes),
                      Line(2, 8 * kMiB, 5 * kMiB) + Line(3, 4 * kMiB, 3 * kMiB, true));
        }
    }
}

TEST_F(EditedDiskJudgesTest, LogicalDrivesAreLeftAlone)
{
    UseDiskBy("printf 'label: dos\\n1: start=2048, size=4096, type=7\\n2: start=8192, size=8192, type=f\\n"
              "5: start=10240, size=2048, type=7\\n6: start=14336, size=1024, type=7\\n' | sfdisk -q FILE");
    const Ranges logicals = {{5 * kMiB, 1 * kMiB}, {7 * kMiB, kMiB / 2}};

    EXPECT_EQ(Add(8 * kMiB, 2 * kMiB), KK_STATUS_SUCCESS);
    EXPECT_EQ(number, 3u);
    ExpectSound();
    EXPECT_EQ(Remove(1 * kMiB), KK_STATUS_SUCCESS);
    ExpectSound();
    EXPECT_EQ(Layout(), (Ranges{{8 * kMiB, 2 * kMiB}, logicals[0], logicals[1]}));
    EXPECT_EQ(Remove(5 * kMiB), Status(0xC000000D));
    EXPECT_EQ(Resize(7 * kMiB, 512), Status(0xC000000D));
}

TEST_F(EditedDiskJudgesTest, AGptIsSoundWhenFullAndWhenEmptyAgain)
{
    UseGpt({});
    for (uint64_t i = 0; i < 128; ++i) {
        EXPECT_EQ(Add(1 * kMiB + i * 64 * kKiB, 64 * kKiB), KK_STATUS_SUCCESS);
        EXPECT_EQ(number, i + 1);
        // Identifiers follow the clock alone.
        machine.clock.Advance(1);
    }
    ExpectSound();
    EXPECT_EQ(Add(14 * kMiB, 64 * kKiB), Status(0xC000007F));
    EXPECT_EQ(Shell("sfdisk -J '" + file + "' | jq '[.partitiontable.partitions[].uuid] | unique | length'"), "128\n");

    for (uint64_t i = 0; i < 128; ++i) {
        EXPECT_EQ(Remove(1 * kMiB + i * 64 * kKiB), KK_STATUS_SUCCESS);
    }
    ExpectSound();
    EXPECT_EQ(PartitionsForOthers(file), "");
}

TEST_F(EditedDiskJudgesTest, TheJudgesNoticeAnEditThatIsHalfDone)
{
    for (const uint64_t write : {uint64_t{2}, uint64_t{3}, uint64_t{4}}) {
        UseBuiltDisk(PartitionStyle::Gpt, 512);
        machine.faults.Clear();
        machine.faults.Fail({.kind = machine::CallKind::WriteFile}, write, 0xC0000185);

        EXPECT_EQ(Resize(8 * kMiB, 5 * kMiB), Status(0xC0000185));
        EXPECT_NE(Complaint(), "") << write;
    }
}

}  // namespace
}  // namespace kk
