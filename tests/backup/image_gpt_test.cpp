#include <array>

#include "image_table_fixture.h"

namespace {

constexpr kk::Guid kDisk = {0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};
constexpr kk::Guid kType = {0xEBD0A0A2, 0xB9E5, 0x4433, {0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7}};

class ImageGptTest : public ImageTableTest {
protected:
    using Entries = std::vector<kk::GptImageEntry>;

    static kk::GptImageEntry Entry(uint64_t offset, uint64_t length, uint8_t mark = 1)
    {
        kk::GptImageEntry entry = {};
        entry.reserved = 0xFFFFFFFF;
        entry.typeGuid = kType;
        entry.idGuid = {mark, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
        entry.offset = offset;
        entry.length = length;
        std::fill(std::begin(entry.name), std::end(entry.name), static_cast<char16_t>(u'A' + mark));
        return entry;
    }

    KK_STATUS Write(uint32_t sectorSize, uint64_t totalSectors, const Entries& entries)
    {
        return kk::WriteImageGpt(*target, sectorSize, totalSectors, kDisk, entries.data(), entries.size());
    }

    /// The slot's first byte of the identifier, by which Entry marks it; 0 when it is empty.
    uint64_t MarkInSlot(uint64_t slot) { return Number(1024 + 128 * slot + 16, 1); }
};

TEST_F(ImageGptTest, TheProtectiveMbrCoversTheDisk)
{
    UseMemory(64 * kMiB);
    std::vector<uint8_t> expected(512);
    const std::array<uint8_t, 16> record = {0, 0, 2, 0, 0xEE, 0xFF, 0xFF, 0xFF, 1, 0, 0, 0, 0xFF, 0xFF, 1, 0};
    std::copy(record.begin(), record.end(), expected.begin() + 446);
    expected[510] = 0x55;
    expected[511] = 0xAA;

    EXPECT_EQ(Write(512, 64 * kMiB / 512, {}), 0);
    EXPECT_EQ(Bytes(0, 512), expected);
}

TEST_F(ImageGptTest, TheHeadersNameEachOther)
{
    constexpr uint64_t kLast = 64 * kMiB / 512 - 1;
    UseMemory(64 * kMiB);

    EXPECT_EQ(Write(512, kLast + 1, {}), 0);
    for (const bool primary : {true, false}) {
        const uint64_t header = primary ? 512 : kLast * 512;
        EXPECT_EQ(Number(header, 8), 0x5452415020494645u);
        EXPECT_EQ(Number(header + 8, 4), 0x00010000u);
        EXPECT_EQ(Number(header + 12, 4), 92u);
        EXPECT_EQ(Number(header + 20, 4), 0u);
        EXPECT_EQ(Number(header + 24, 8), primary ? 1u : kLast);
        EXPECT_EQ(Number(header + 32, 8), primary ? kLast : 1u);
        EXPECT_EQ(Number(header + 40, 8), 34u);
        EXPECT_EQ(Number(header + 48, 8), kLast - 33);
        EXPECT_EQ(Bytes(header + 56, 16), (std::vector<uint8_t>{0x33, 0x22, 0x11, 0x00, 0x55, 0x44, 0x77, 0x66, 0x88,
                                                                0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}));
        EXPECT_EQ(Number(header + 72, 8), primary ? 2u : kLast - 32);
        EXPECT_EQ(Number(header + 80, 4), 128u);
        EXPECT_EQ(Number(header + 84, 4), 128u);
        EXPECT_EQ(Bytes(header + 92, 420), std::vector<uint8_t>(420));
    }
}

TEST_F(ImageGptTest, LargeSectorsHoldTheArrayInFour)
{
    constexpr uint64_t kLast = 64 * kMiB / 4096 - 1;
    UseMemory(64 * kMiB);

    EXPECT_EQ(Write(4096, kLast + 1, {Entry(kMiB, kMiB)}), 0);
    EXPECT_EQ(Number(4096 + 40, 8), 6u);
    EXPECT_EQ(Number(4096 + 48, 8), kLast - 5);
    EXPECT_EQ(Number(4096 + 72, 8), 2u);
    EXPECT_EQ(Number(kLast * 4096 + 72, 8), kLast - 4);
    EXPECT_EQ(Steps(),
              (std::vector<Step>{
                  {0, 4096}, {4096, 4096}, {8192, 16384}, {(kLast - 4) * 4096, 16384}, {kLast * 4096, 4096}, kFlush}));
    EXPECT_EQ(Bytes(8192, 16384), Bytes((kLast - 4) * 4096, 16384));
}

TEST_F(ImageGptTest, ASectorSizeOfZeroMeans512)
{
    UseMemory(kMiB);

    EXPECT_EQ(Write(0, 2048, {Entry(512, 1024)}), 0);
    EXPECT_EQ(Steps(),
              (std::vector<Step>{{0, 512}, {512, 512}, {1024, 16384}, {2015 * 512, 16384}, {2047 * 512, 512}, kFlush}));
    EXPECT_EQ(Number(1024 + 32, 8), 1u);
    EXPECT_EQ(Number(1024 + 40, 8), 2u);
}

TEST_F(ImageGptTest, AnEntryHasAllItsBytes)
{
    UseMemory(kMiB);
    std::vector<uint8_t> expected = {0xA2, 0xA0, 0xD0, 0xEB, 0xE5, 0xB9, 0x33, 0x44, 0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26,
                                     0x99, 0xC7, 1,    0,    0,    0,    2,    0,    3,    0,    4,    5,    6,    7,
                                     8,    9,    10,   11,   0x80, 0,    0,    0,    0,    0,    0,    0,    0x7F, 1,
                                     0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0};
    for (int i = 0; i < 36; ++i) {
        expected.push_back('B');
        expected.push_back(0);
    }

    EXPECT_EQ(Write(512, 2048, {Entry(65536, 131072)}), 0);
    EXPECT_EQ(Bytes(1024, 128), expected);
    EXPECT_EQ(Bytes(1024 + 128, 16384 - 128), std::vector<uint8_t>(16384 - 128));
}

TEST_F(ImageGptTest, SectorNumbersAreRoundedDown)
{
    UseMemory(kMiB);

    EXPECT_EQ(Write(512, 2048, {Entry(65536 + 511, 1024 + 1), Entry(65536, 0), Entry(512, 1)}), 0);
    EXPECT_EQ(Number(1024 + 32, 8), 128u);
    EXPECT_EQ(Number(1024 + 40, 8), (65536u + 511 + 1024 + 1) / 512 - 1);
    EXPECT_EQ(Number(1152 + 32, 8), 128u);
    EXPECT_EQ(Number(1152 + 40, 8), 127u);
    EXPECT_EQ(Number(1280 + 32, 8), 1u);
    EXPECT_EQ(Number(1280 + 40, 8), 0u);
}

TEST_F(ImageGptTest, SectorNumbersHave64Bits)
{
    UseMemory(kMiB);

    EXPECT_EQ(Write(512, 2048, {Entry(0x7'0000'0000'0000, 0x1'0000'0000'0000)}), 0);
    EXPECT_EQ(Number(1024 + 32, 8), 0x380'0000'0000u);
    EXPECT_EQ(Number(1024 + 40, 8), 0x3FF'FFFF'FFFFu);
}

TEST_F(ImageGptTest, AnEntryAtOffsetZeroTakesNoSlot)
{
    UseMemory(kMiB);

    EXPECT_EQ(Write(512, 2048, {Entry(0, kMiB, 9), Entry(512, 512, 1), Entry(0, 0, 9), Entry(1024, 512, 2)}), 0);
    EXPECT_EQ(MarkInSlot(0), 1u);
    EXPECT_EQ(MarkInSlot(1), 2u);
    EXPECT_EQ(MarkInSlot(2), 0u);
}

TEST_F(ImageGptTest, TheLastOf129EntriesIsDropped)
{
    UseMemory(kMiB);
    Entries entries;
    for (uint8_t i = 1; i <= 129; ++i) {
        entries.push_back(Entry(512ull * i, 512, i));
    }

    EXPECT_EQ(Write(512, 2048, entries), 0);
    for (uint64_t slot = 0; slot < 128; ++slot) {
        EXPECT_EQ(MarkInSlot(slot), slot + 1);
    }
    EXPECT_EQ(Number(1024 + 16384, 1), 0xEEu);
}

TEST_F(ImageGptTest, EntriesAtOffsetZeroDoNotCountAmongThe128)
{
    UseMemory(kMiB);
    Entries entries(5, Entry(0, 512, 200));
    for (uint8_t i = 1; i <= 128; ++i) {
        entries.push_back(Entry(512ull * i, 512, i));
    }

    EXPECT_EQ(Write(512, 2048, entries), 0);
    EXPECT_EQ(MarkInSlot(0), 1u);
    EXPECT_EQ(MarkInSlot(127), 128u);
}

TEST_F(ImageGptTest, AnArrayOfOddSectorsEndsInZeros)
{
    // 520 x 32 = 16640 bytes: the checksum covers what lies behind the 128 entries, too.
    UseMemory(kMiB);
    Entries entries(130, Entry(520, 520, 7));

    EXPECT_EQ(Write(520, 2000, entries), 0);
    EXPECT_EQ(Steps()[2], (Step{1040, 16640}));
    EXPECT_EQ(Bytes(1040 + 16384, 256), std::vector<uint8_t>(256));
}

TEST_F(ImageGptTest, TheProtectiveSizeIsCutAt32Bits)
{
    struct Case {
        uint64_t sectors;
        uint64_t size;
    };
    for (const Case& one : {Case{2, 1}, Case{3, 2}, Case{0xFFFF'FFFF, 0xFFFF'FFFE}, Case{0x1'0000'0000, 0xFFFF'FFFF},
                            Case{0x1'0000'0001, 0xFFFF'FFFF}, Case{0x2'0000'0000, 0xFFFF'FFFF}}) {
        UseMemory(0x2'0000'0000 * 512);

        // The smallest disks have no room for the second array; the first sector is written before that shows.
        (void)Write(512, one.sectors, {});
        EXPECT_EQ(Number(458, 4), one.size) << one.sectors;
    }
}

TEST_F(ImageGptTest, ADiskBeyondTwoTebibytesIsWrittenToItsEnd)
{
    constexpr uint64_t kLast = 0x1'8000'0000 - 1;  // 3 TiB
    UseMemory((kLast + 1) * 512);

    EXPECT_EQ(Write(512, kLast + 1, {}), 0);
    EXPECT_EQ(Number(512 + 32, 8), kLast);
    EXPECT_EQ(Number(kLast * 512 + 24, 8), kLast);
    EXPECT_EQ(Steps()[3], (Step{(kLast - 32) * 512, 16384}));
}

TEST_F(ImageGptTest, DisksWithoutSectorsWrapAndTheDeviceRefuses)
{
    for (const uint64_t sectors : {0ull, 1ull}) {
        UseMemory(kMiB);
        machine.journal.Clear();

        EXPECT_EQ(Write(512, sectors, {}), Status(0xC000000D)) << sectors;
        EXPECT_EQ(Number(458, 4), 0u);
        EXPECT_EQ(Number(512 + 32, 8), sectors - 1);
        EXPECT_EQ(Number(512 + 48, 8), sectors - 1 - 32 - 1);
        EXPECT_EQ(Steps(), (std::vector<Step>{{0, 512}, {512, 512}, {1024, 16384}}));
    }
}

TEST_F(ImageGptTest, TheFirstFailingWriteEndsItWithoutAFlush)
{
    const std::vector<Step> all = {{0, 512}, {512, 512}, {1024, 16384}, {2015 * 512, 16384}, {2047 * 512, 512}};
    for (uint64_t nth = 1; nth <= 5; ++nth) {
        UseMemory(kMiB);
        machine.journal.Clear();
        machine.faults.Clear();
        FailWrite(nth, 0xC0000180 + static_cast<uint32_t>(nth));

        EXPECT_EQ(Write(512, 2048, {}), Status(0xC0000180 + static_cast<uint32_t>(nth)));
        EXPECT_EQ(Steps(), std::vector<Step>(all.begin(), all.begin() + static_cast<ptrdiff_t>(nth)));
        EXPECT_EQ(Number(510, 2), nth > 1 ? 0xAA55u : 0xEEEEu);
        EXPECT_EQ(machine.heap.LiveBlocks(), 1u);  // the target itself
    }
}

TEST_F(ImageGptTest, ADeviceThatTakesNothingMoreEndsIt)
{
    UseMemory(kMiB);
    machine.faults.Shorten({.kind = machine::CallKind::WriteFile}, 3, 0);

    EXPECT_EQ(Write(512, 2048, {}), Status(0xC0000001));
    EXPECT_EQ(Steps().size(), 3u);
}

TEST_F(ImageGptTest, AFailingFlushIsIgnored)
{
    UseMemory(kMiB);
    device->flushStatus = Status(0xC0000185);

    EXPECT_EQ(Write(512, 2048, {}), 0);
    EXPECT_EQ(Steps().back(), kFlush);
}

TEST_F(ImageGptTest, WithoutMemoryNothingIsWritten)
{
    UseMemory(kMiB);
    for (uint64_t nth = 1; nth <= 2; ++nth) {
        machine.faults.Clear();
        machine.faults.Fail({.kind = machine::CallKind::Allocate}, nth, 0);

        EXPECT_EQ(Write(512, 2048, {Entry(512, 512)}), Status(0xC0000001));
        EXPECT_TRUE(Steps().empty());
        EXPECT_EQ(machine.heap.LiveBlocks(), 1u);  // the target itself
    }
    EXPECT_EQ(machine.heap.Sizes(), std::vector<uint64_t>{16384});
}

TEST_F(ImageGptTest, TheLargestSectorsAskForTheWholeArray)
{
    UseMemory(kMiB);
    for (const uint32_t sectorSize : {0x80000000u, 0xFFFFC001u, 0xFFFFFFFFu}) {
        machine.journal.Clear();

        EXPECT_EQ(Write(sectorSize, 64, {}), Status(0xC0000001));
        const auto requests = machine.journal.FindAll({.kind = machine::CallKind::Allocate});
        ASSERT_EQ(requests.size(), 1u);
        EXPECT_EQ(requests[0].length, sectorSize);
        EXPECT_TRUE(Steps().empty());
    }
}

TEST_F(ImageGptTest, SectorBuffersHoldTheHeaderWhateverTheSectorSize)
{
    UseMemory(kMiB);

    EXPECT_EQ(Write(4, kMiB / 4, {}), 0);
    EXPECT_EQ(machine.heap.Sizes(), (std::vector<uint64_t>{16384, 512}));
    EXPECT_EQ(machine.heap.LiveBlocks(), 1u);  // the target itself
}

}  // namespace
