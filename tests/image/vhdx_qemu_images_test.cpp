#include <cstring>

#include "image_partitions_fixture.h"
#include "machine/storage.h"
#include "machine/text.h"
#include "support/table_judges.h"

namespace {

/// How QEMU is to write an image.
struct Format {
    std::string subformat;
    uint32_t blockMebibytes;
};

void PrintTo(const Format& format, std::ostream* stream)
{
    *stream << format.subformat << format.blockMebibytes;
}

class VhdxQemuImagesTest : public ImagePartitionsTest, public testing::WithParamInterface<Format> {
protected:
    /// An empty disk in a sparse file.
    void MakeDisk(uint64_t size)
    {
        Shell("truncate -s " + std::to_string(size) + " " + raw);
        source.emplace(raw);
    }
    void PutData(uint64_t offset, size_t length, uint8_t seed)
    {
        ASSERT_TRUE(source->Write(offset, Pattern(length, seed)));
    }
    void Convert(const Format& format)
    {
        Shell("qemu-img convert -f raw -O vhdx -o subformat=" + format.subformat +
              ",block_size=" + std::to_string(format.blockMebibytes) + "M " + raw + " " + file.string());
        ASSERT_EQ(OpenFile(), 0);
        EXPECT_EQ(reader->BlockSize(), format.blockMebibytes << 20);
        EXPECT_EQ(reader->LogicalSectorSize(), 512u);
    }
    /// Every byte is the one that QEMU reads from the image.
    void ExpectTheDiskOfQemu()
    {
        const std::string path = (folder / "qemu.raw").string();
        Shell("qemu-img convert -f vhdx -O raw " + file.string() + " " + path);
        machine::FileStorage expected(path, machine::FileStorage::Mode::ReadOnly);
        ASSERT_EQ(reader->VirtualSize(), expected.Size());
        ExpectDisk(expected);
    }
    void ExpectDisk(machine::Storage& expected)
    {
        constexpr uint64_t pieceBytes = 3 * kMiB + 4097;
        std::vector<uint8_t> theirs;
        for (uint64_t offset = 0; offset < expected.Size(); offset += pieceBytes) {
            theirs.resize(std::min(pieceBytes, expected.Size() - offset));
            ASSERT_TRUE(expected.Read(offset, theirs));
            ASSERT_EQ(Read(offset, theirs.size()), 0) << "at " << offset;
            ASSERT_EQ(std::memcmp(bytes.data(), theirs.data(), theirs.size()), 0) << "at " << offset;
        }
    }
    /// As another program tells partitions; of an MBR all but the type.
    std::string Partitions(bool withNames)
    {
        std::string lines;
        for (const kk::ImagePartition& partition : *partitions) {
            lines += std::to_string(partition.number) + " " + std::to_string(partition.offset / 512) + " " +
                     std::to_string(partition.length / 512);
            if (withNames) {
                const std::u16string name = NameOf(partition);
                lines +=
                    " " + Lower(machine::BracedGuid(partition.typeGuid)) + " " + std::string(name.begin(), name.end());
            }
            lines += "\n";
        }
        return lines;
    }
    static std::string Lower(const std::u16string& braced)
    {
        std::string text(braced.begin() + 1, braced.end() - 1);
        std::ranges::transform(text, text.begin(), [](char letter) { return static_cast<char>(std::tolower(letter)); });
        return text;
    }

    std::string raw = (folder / "disk.raw").string();
    std::optional<machine::FileStorage> source;
};

TEST_P(VhdxQemuImagesTest, AWholeGptDiskReadsAsItWas)
{
    MakeDisk(300 * kMiB + 3 * 512);
    Shell("sgdisk -n 1:2048:+100M -c 1:First -n 2:0:+16M -t 2:ef00 -c 2:Second -n 9:0:0 -t 9:8200 -c 9:Last " + raw);
    PutData(kMiB, 300'000, 1);
    PutData(31 * kMiB + 777, 4 * kMiB, 2);
    PutData(256 * kMiB - 700, 1400, 3);
    Convert(GetParam());

    ExpectTheDiskOfQemu();
    ExpectDisk(*source);
    ASSERT_EQ(ReadGpt(), 0);
    EXPECT_EQ(partitions->Count(), 3u);
    EXPECT_EQ(Partitions(true), PartitionsForOthers(raw));
}

TEST_P(VhdxQemuImagesTest, AWholeMbrDiskReadsAsItWas)
{
    MakeDisk(260 * kMiB);
    Shell("printf 'label: dos\\n,16M,7\\n,64M,c,*\\n,100M,5\\n,,83\\n,8M,7\\n,8M,83\\n' | sfdisk -q " + raw);
    PutData(kMiB, 3 * kMiB + 11, 1);
    PutData(260 * kMiB - 512, 512, 2);
    Convert(GetParam());

    ExpectTheDiskOfQemu();
    ExpectDisk(*source);
    EXPECT_EQ(ReadGpt(), kMalformed);
    ASSERT_EQ(ReadMbr(), 0);
    EXPECT_EQ(Partitions(false), Shell("sfdisk -l -q -o START,SECTORS " + raw +
                                       " | awk 'NR > 1 && NR <= 5 "
                                       "{ print NR - 1, $1, $2 }'"));
    EXPECT_EQ(NameOf((*partitions)[0]), u"NTFS / exFAT");
    EXPECT_EQ(NameOf((*partitions)[1]), u"FAT32");
    EXPECT_EQ(NameOf((*partitions)[2]), u"Type 0x05");
    EXPECT_EQ(NameOf((*partitions)[3]), u"Linux");
}

class VhdxQemuChunksTest : public VhdxQemuImagesTest {};

TEST_P(VhdxQemuChunksTest, ADiskOfMoreThanAChunkReadsAsItWas)
{
    MakeDisk(4 * kGiB + 600 * kMiB + 5 * 512);
    Shell("sgdisk -n 1:2048:+3G -c 1:First -n 2:0:0 -c 2:Second " + raw);
    PutData(3 * kGiB, 1400, 1);
    PutData(4 * kGiB - 700, 1400, 2);
    PutData(4 * kGiB + 300 * kMiB - 5, 2 * kMiB, 3);
    Convert(GetParam());

    ExpectTheDiskOfQemu();
    ASSERT_EQ(ReadGpt(), 0);
    EXPECT_EQ(Partitions(true), PartitionsForOthers(raw));
}

INSTANTIATE_TEST_SUITE_P(Dynamic, VhdxQemuImagesTest,
                         testing::Values(Format{"dynamic", 1}, Format{"dynamic", 2}, Format{"dynamic", 8},
                                         Format{"dynamic", 32}, Format{"dynamic", 256}),
                         testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Fixed, VhdxQemuImagesTest,
                         testing::Values(Format{"fixed", 1}, Format{"fixed", 16}, Format{"fixed", 256}),
                         testing::PrintToStringParamName());

INSTANTIATE_TEST_SUITE_P(Formats, VhdxQemuChunksTest,
                         testing::Values(Format{"dynamic", 1}, Format{"dynamic", 256}, Format{"fixed", 32}),
                         testing::PrintToStringParamName());

class VhdxQemuEmptyImageTest : public ImagePartitionsTest {};

TEST_F(VhdxQemuEmptyImageTest, ADiskOfManyTerabytesIsZeros)
{
    Shell("qemu-img create -q -f vhdx " + file.string() + " 60T");

    ASSERT_EQ(OpenFile(), 0);
    EXPECT_EQ(reader->VirtualSize(), 60 * kTiB);
    ExpectZeros(0, kMiB);
    ExpectZeros(60 * kTiB - kMiB, 2 * kMiB);
    EXPECT_EQ(ReadGpt(), kMalformed);
}

}  // namespace
