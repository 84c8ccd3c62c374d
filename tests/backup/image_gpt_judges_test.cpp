#include <fstream>
#include <random>

#include "image_table_fixture.h"
#include "machine/text.h"
#include "support/hex.h"
#include "support/shell.h"
#include "support/table_judges.h"

// Tables in images, judged by programs that are not ours.

namespace {

/// Builds the same disk from the same arguments and compares every byte. Zeros and the checksums are its own.
constexpr char kSecondWriter[] = R"(
import struct, sys, zlib
image, sector, total = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
disk = bytes.fromhex(sys.argv[4])
sector = sector or 512
last = total - 1
count = (sector + 16383) // sector
array = bytearray(count * sector)
slot = 0
for line in open(image + '.entries'):
    kind, identity, offset, length, name = line.split()
    offset, length = int(offset), int(length)
    if offset == 0 or slot == 128:
        continue
    array[slot * 128:slot * 128 + 128] = (bytes.fromhex(kind) + bytes.fromhex(identity)
        + struct.pack('<QQQ', offset // sector, (offset + length) // sector - 1, 0) + bytes.fromhex(name))
    slot += 1
def header(own, other, entries):
    def pack(crc):
        return struct.pack('<8sIIIIQQQQ16sQIII', b'EFI PART', 0x10000, 92, crc, 0, own, other, count + 2,
            last - count - 1, disk, entries, 128, 128, zlib.crc32(array))
    return pack(zlib.crc32(pack(0))).ljust(sector, b'\0')[:sector]
protective = bytearray(max(sector, 512))
protective[446:462] = struct.pack('<8B2I', 0, 0, 2, 0, 0xEE, 255, 255, 255, 1, min(last, 0xFFFFFFFF))
protective[510:512] = b'\x55\xAA'
found = open(image, 'rb').read()
expected = bytearray(b'\xEE' * len(found))
def put(offset, data):
    expected[offset:offset + len(data)] = data
put(0, protective[:sector])
put(sector, header(1, last, 2))
put(2 * sector, array)
put((last - count) * sector, array)
put(last * sector, header(last, 1, last - count))
assert len(expected) == len(found)
if expected != found:
    at = next(i for i, (a, b) in enumerate(zip(expected, found)) if a != b)
    sys.exit(f'byte {at}: {found[at]:#x} instead of {expected[at]:#x}')
print('same')
)";

class ImageGptJudgesTest : public ImageTableTest {
protected:
    void UseFile(uint64_t size, char filling)
    {
        if (filling == 0) {
            std::ofstream(file, std::ios::trunc).close();
            std::filesystem::resize_file(file, size);
        } else {
            std::ofstream(file, std::ios::trunc | std::ios::binary) << std::string(size, filling);
        }
        storage = std::make_unique<machine::FileStorage>(file);
    }

    kk::GptImageEntry RandomEntry(uint64_t offset, uint64_t length)
    {
        kk::GptImageEntry entry = {};
        auto* const bytes = reinterpret_cast<uint8_t*>(&entry);
        for (size_t i = 0; i < sizeof(entry); ++i) {
            bytes[i] = static_cast<uint8_t>(random());
        }
        entry.offset = offset;
        entry.length = length;
        return entry;
    }

    KK_STATUS Write(uint32_t sectorSize, uint64_t totalSectors)
    {
        return kk::WriteImageGpt(*target, sectorSize, totalSectors, disk, entries.data(), entries.size());
    }

    void ExpectSameAsSecondWriter(uint32_t sectorSize, uint64_t totalSectors)
    {
        {
            std::ofstream lines(file + ".entries");
            for (const kk::GptImageEntry& entry : entries) {
                lines << HexOf(machine::BytesOf(entry.typeGuid)) << ' ' << HexOf(machine::BytesOf(entry.idGuid)) << ' '
                      << entry.offset << ' ' << entry.length << ' ' << HexOf(machine::BytesOf(entry.name)) << '\n';
            }
        }
        EXPECT_EQ(Shell("python3 - '" + file + "' " + std::to_string(sectorSize) + " " + std::to_string(totalSectors) +
                        " " + HexOf(machine::BytesOf(disk)) + " <<'SCRIPT'" + kSecondWriter + "SCRIPT\ntrue"),
                  "same\n")
            << sectorSize << " " << totalSectors;
    }

    TemporaryFolder folder;
    std::string file = (folder / "disk").string();
    std::mt19937_64 random{42};
    kk::Guid disk = {0x6B3F2C51, 0x8E1D, 0x4A7B, {0x9C, 0x05, 0x2D, 0x4E, 0x6F, 0x81, 0x93, 0xA4}};
    std::vector<kk::GptImageEntry> entries;
};

TEST_F(ImageGptJudgesTest, ASecondWriterMakesTheSameBytes)
{
    struct Shape {
        uint32_t sectorSize;
        uint64_t totalSectors;
    };
    for (const Shape& shape :
         {Shape{512, 2048}, Shape{0, 2048}, Shape{4096, 256}, Shape{520, 2001}, Shape{4, 262144}, Shape{1, 1048576},
          Shape{92, 11000}, Shape{16384, 64}, Shape{16385, 64}, Shape{65536, 16}, Shape{2048, 500}}) {
        const uint64_t sectorSize = shape.sectorSize == 0 ? 512 : shape.sectorSize;
        entries.clear();
        for (int i = 0; i < 140; ++i) {
            entries.push_back(RandomEntry(i % 9 == 3 ? 0 : random() >> (random() % 60) | 1, random() >> 8));
        }
        UseFile(sectorSize * shape.totalSectors, '\xEE');

        ASSERT_EQ(Write(shape.sectorSize, shape.totalSectors), 0);
        ExpectSameAsSecondWriter(shape.sectorSize, shape.totalSectors);
    }
}

TEST_F(ImageGptJudgesTest, OtherToolsFindNothingToComplainOf)
{
    UseFile(512 * kMiB, 0);
    for (uint64_t i = 0; i < 3; ++i) {
        kk::GptImageEntry entry = RandomEntry((1 + 100 * i) * kMiB, (i + 1) * 30 * kMiB);
        entry.typeGuid = i == 0 ? machine::kEfiSystemType : machine::kBasicDataType;
        entry.idGuid = machine::MadeUpPartitionId(static_cast<uint32_t>(i));
        std::fill(std::begin(entry.name), std::end(entry.name), char16_t{0});
        entry.name[0] = static_cast<char16_t>(u'a' + i);
        entry.name[1] = u'é';
        entries.push_back(entry);
    }

    ASSERT_EQ(Write(512, 512 * kMiB / 512), 0);

    EXPECT_EQ(ComplaintAboutGpt(file), "");
    EXPECT_EQ(Shell("LC_ALL=C.UTF-8 sfdisk -J '" + file +
                    "' | jq -c '.partitiontable | [.label, .id, .firstlba, .lastlba, [.partitions[] | "
                    "[.start, .size, .type, .name, .attrs]]]'"),
              "[\"gpt\",\"6B3F2C51-8E1D-4A7B-9C05-2D4E6F8193A4\",34,1048542,"
              "[[2048,61440,\"C12A7328-F81F-11D2-BA4B-00A0C93EC93B\",\"aé\",null],"
              "[206848,122880,\"EBD0A0A2-B9E5-4433-87C0-68B6B72699C7\",\"bé\",null],"
              "[411648,184320,\"EBD0A0A2-B9E5-4433-87C0-68B6B72699C7\",\"cé\",null]]]\n");
}

TEST_F(ImageGptJudgesTest, AFullTableReachesFromTheFirstUsableSectorToTheLast)
{
    constexpr uint64_t kSectors = 64 * kMiB / 512;
    UseFile(64 * kMiB, 0);
    constexpr uint64_t kFirst = 34;
    constexpr uint64_t kEach = (kSectors - 34 - kFirst) / 128;
    for (uint32_t i = 0; i < 128; ++i) {
        const uint64_t first = kFirst + i * kEach;
        const uint64_t sectors = i == 127 ? kSectors - 33 - first : kEach;
        kk::GptImageEntry entry = RandomEntry(first * 512, sectors * 512);
        entry.typeGuid = machine::kBasicDataType;
        entry.idGuid = machine::MadeUpPartitionId(i);
        entries.push_back(entry);
    }

    ASSERT_EQ(Write(512, kSectors), 0);

    const std::string verdict = Shell("sgdisk -v '" + file + "'");
    EXPECT_NE(verdict.find("No problems found"), std::string::npos) << verdict;
    EXPECT_EQ(verdict.find("Problem"), std::string::npos) << verdict;
    EXPECT_EQ(Shell("sfdisk -J '" + file + "' | jq '.partitiontable.partitions | length'"), "128\n");
}

TEST_F(ImageGptJudgesTest, AnotherReaderFindsThePartitionsOfLargeSectors)
{
    UseFile(64 * kMiB, 0);
    kk::GptImageEntry entry = {};
    entry.typeGuid = machine::kBasicDataType;
    entry.idGuid = machine::MadeUpPartitionId(5);
    entry.offset = 4 * kMiB;
    entry.length = 8 * kMiB;
    entries.push_back(entry);

    ASSERT_EQ(Write(4096, 64 * kMiB / 4096), 0);

    EXPECT_EQ(Shell("partx --sector-size 4096 -r -g -o NR,START,SECTORS '" + file + "'"), "1 8192 16384\n");
}

}  // namespace
