#include "machine/layout_parser.h"

#include "machine/host_tools.h"
#include "machine/text.h"
#include "tests/machine/native_calls.h"

namespace machine {
namespace {

/// A file that one of the host's partitioning tools has written a table to.
class ToolMadeDisk {
public:
    explicit ToolMadeDisk(uint64_t bytes) : file_(bytes) {}

    void Sgdisk(std::vector<std::string> options)
    {
        options.insert(options.begin(), "sgdisk");
        options.push_back(file_.Path());
        RunToolOrThrow(options);
    }

    void Sfdisk(const std::string& script)
    {
        RunToolOrThrow({"sh", "-c", "printf '" + script + "' | sfdisk --no-reread '" + file_.Path() + "'"});
    }

    Layout Parse()
    {
        FileStorage storage(file_.Path());
        return ParseLayout(storage, 512);
    }

    const std::string& Path() const { return file_.Path(); }

private:
    TemporaryFile file_;
};

void Damage(const std::string& path, uint64_t offset)
{
    FileStorage storage(path);
    std::vector<uint8_t> byte(1);
    storage.Read(offset, byte);
    byte[0] ^= 0xFF;
    storage.Write(offset, byte);
}

TEST(LayoutParserTest, AGptOfSgdiskIsReadInSlotOrderWithNumbersOverUsedEntries)
{
    ToolMadeDisk disk(64 * kMiB);
    disk.Sgdisk({"-U", "11111111-2222-3333-4444-555555555555", "-n", "5:20M:+8M", "-t", "5:0700", "-c", "5:Data", "-u",
                 "5:AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE", "-n", "2:2M:+4M", "-t", "2:EF00", "-A", "2:set:63"});

    const Layout layout = disk.Parse();

    ASSERT_EQ(layout.header.partitionStyle, kk::WirePartitionStyle::Gpt);
    EXPECT_EQ(layout.header.gpt.diskId, ParseGuid("11111111-2222-3333-4444-555555555555"));
    EXPECT_EQ(layout.header.gpt.maxPartitionCount, 128u);
    EXPECT_EQ(layout.header.gpt.startingUsableOffset, 34 * 512);
    EXPECT_EQ(layout.header.gpt.usableLength, static_cast<int64_t>(64 * kMiB - 67 * 512));
    ASSERT_EQ(layout.partitions.size(), 2u);
    const kk::PartitionInformationEx& efi = layout.partitions[0];
    EXPECT_EQ(efi.partitionNumber, 1u);
    EXPECT_EQ(efi.gpt.partitionType, kEfiSystemType);
    EXPECT_EQ(efi.gpt.attributes, 1ull << 63);
    const kk::PartitionInformationEx& data = layout.partitions[1];
    EXPECT_EQ(data.partitionNumber, 2u);
    EXPECT_EQ(data.startingOffset, static_cast<int64_t>(20 * kMiB));
    EXPECT_EQ(data.partitionLength, static_cast<int64_t>(8 * kMiB));
    EXPECT_EQ(data.gpt.partitionId, ParseGuid("AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE"));
    EXPECT_EQ(std::u16string(data.gpt.name), u"Data");
}

TEST(LayoutParserTest, TheBackupStandsInForADamagedPrimary)
{
    ToolMadeDisk disk(16 * kMiB);
    disk.Sgdisk({"-n", "1:1M:+4M"});
    Damage(disk.Path(), 512 + 16);

    const Layout layout = disk.Parse();

    EXPECT_EQ(layout.header.partitionStyle, kk::WirePartitionStyle::Gpt);
    ASSERT_EQ(layout.partitions.size(), 1u);
    EXPECT_EQ(layout.partitions[0].startingOffset, static_cast<int64_t>(kMiB));
}

TEST(LayoutParserTest, WithBothCopiesDamagedSectorZeroIsBelieved)
{
    ToolMadeDisk disk(16 * kMiB);
    disk.Sgdisk({"-n", "1:1M:+4M"});
    Damage(disk.Path(), 2 * 512);
    Damage(disk.Path(), 16 * kMiB - 512 + 16);

    const Layout layout = disk.Parse();

    EXPECT_EQ(layout.header.partitionStyle, kk::WirePartitionStyle::Mbr);
    ASSERT_EQ(layout.partitions.size(), 4u);
    EXPECT_EQ(layout.partitions[0].mbr.partitionType, 0xEE);
}

TEST(LayoutParserTest, AnMbrOfSfdiskShowsContainersAndNumbersOnlyRealPartitions)
{
    ToolMadeDisk disk(128 * kMiB);
    disk.Sfdisk("label: dos\\nlabel-id: 0x1badcafe\\nstart=2048, size=20480, type=7, bootable\\n"
                "start=22528, size=180224, type=5\\nstart=24576, size=20480, type=7\\n"
                "start=47104, size=20480, type=c\\nstart=69632, size=10240, type=83\\n");

    const Layout layout = disk.Parse();

    EXPECT_EQ(layout.header.partitionStyle, kk::WirePartitionStyle::Mbr);
    EXPECT_EQ(layout.header.mbr.signature, 0x1BADCAFEu);
    std::vector<std::tuple<uint32_t, int64_t, int64_t, uint32_t>> real;
    for (const kk::PartitionInformationEx& entry : layout.partitions) {
        if (entry.partitionNumber != 0) {
            real.emplace_back(entry.mbr.partitionType, entry.startingOffset / 512, entry.partitionLength / 512,
                              entry.partitionNumber);
        } else {
            EXPECT_TRUE(entry.mbr.partitionType == 0 || IsExtendedContainer(entry.mbr.partitionType));
        }
    }
    EXPECT_EQ(layout.partitions.size(), 16u);
    EXPECT_EQ(layout.partitions[0].mbr.bootIndicator, 1);
    EXPECT_EQ(layout.partitions[1].mbr.partitionType, 5);
    const decltype(real) expected = {
        {0x07, 2048, 20480, 1}, {0x07, 24576, 20480, 2}, {0x0C, 47104, 20480, 3}, {0x83, 69632, 10240, 4}};
    EXPECT_EQ(real, expected);
}

TEST(LayoutParserTest, AChainThatLeadsInCirclesEnds)
{
    MemoryStorage storage(64 * kMiB);
    WriteMbrTable(storage, 512, {.logicals = {{4 * kMiB, 4 * kMiB}, {12 * kMiB, 4 * kMiB}}});
    // The second link's record names the first link again.
    const std::vector<uint8_t> loop = {0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0, 0, 8, 0, 0};
    storage.Write(11 * kMiB + 446 + 16, loop);

    const Layout layout = ParseLayout(storage, 512);

    EXPECT_EQ(layout.partitions.size(), 12u);
}

TEST(LayoutParserTest, AnEmptyDiskIsRawAndABareFileSystemIsOnePartition)
{
    MemoryStorage storage(16 * kMiB);
    EXPECT_EQ(ParseLayout(storage, 512).header.partitionStyle, kk::WirePartitionStyle::Raw);
    EXPECT_EQ(ParseLayout(storage, 512).header.partitionCount, 0u);

    FormatRegion(storage, 512, 0, 16 * kMiB, FileSystem::Ntfs, {});
    const Layout layout = ParseLayout(storage, 512);

    EXPECT_EQ(layout.header.partitionStyle, kk::WirePartitionStyle::Mbr);
    ASSERT_EQ(layout.partitions.size(), 1u);
    EXPECT_EQ(layout.partitions[0].startingOffset, 0);
    EXPECT_EQ(layout.partitions[0].partitionLength, static_cast<int64_t>(16 * kMiB));
}

TEST(LayoutParserTest, EverySingleBitOfAHeaderMatters)
{
    for (uint64_t bit = 0; bit < 92 * 8; ++bit) {
        MemoryStorage storage(4 * kMiB);
        WriteGptTable(storage, 512, {.partitions = {{kMiB, kMiB}}, .entryCount = 4});
        for (const uint64_t header : {uint64_t{512}, 4 * kMiB - 512}) {
            std::vector<uint8_t> byte(1);
            storage.Read(header + bit / 8, byte);
            byte[0] = static_cast<uint8_t>(byte[0] ^ (1u << (bit % 8)));
            storage.Write(header + bit / 8, byte);
        }
        EXPECT_EQ(ParseLayout(storage, 512).header.partitionStyle, kk::WirePartitionStyle::Mbr) << "bit " << bit;
    }
}

}  // namespace
}  // namespace machine
