#include "image_partitions_fixture.h"

namespace {

using machine::CallKind;

class ImageMbrPartitionsTest : public ImagePartitionsTest {
protected:
    /// Fills a slot (1 to 4) and sets the mark.
    void WriteSlot(uint64_t slot, uint8_t type, uint32_t firstSector, uint32_t sectorCount)
    {
        const uint64_t at = 446 + (slot - 1) * 16;
        Put(at, {0x80, 0xFE, 0xFF, 0xFF, type, 0xFE, 0xFF, 0xFF});
        PutNumber(at + 8, firstSector, 4);
        PutNumber(at + 12, sectorCount, 4);
        Put(510, {0x55, 0xAA});
    }
    /// Up to four types must have these labels, with nothing but zeros behind each.
    void ExpectLabels(const std::vector<std::pair<uint8_t, std::u16string>>& labels)
    {
        Put(446, std::vector<uint8_t>(64));
        for (size_t i = 0; i < labels.size(); ++i) {
            WriteSlot(i + 1, labels[i].first, 2048, 2048);
        }
        MustOpenDisk();
        ASSERT_EQ(ReadMbr(), 0);
        ASSERT_EQ(partitions->Count(), labels.size());
        for (uint32_t i = 0; i < labels.size(); ++i) {
            std::u16string field = labels[i].second;
            field.resize(36);
            EXPECT_EQ(std::u16string((*partitions)[i].name, 36), field) << int{labels[i].first};
        }
    }
};

TEST_F(ImageMbrPartitionsTest, TellsEveryFieldOfAPartition)
{
    machine::WriteMbrTable(disk, 512,
                           {.partitions = {{.start = kMiB, .length = 8 * kMiB, .type = 0x07, .active = true},
                                           {.start = 16 * kMiB, .length = kMiB, .type = 0x83}}});
    MustOpenDisk();

    ASSERT_EQ(ReadMbr(), 0);
    ASSERT_EQ(partitions->Count(), 2u);
    const kk::ImagePartition& first = (*partitions)[0];
    EXPECT_EQ(first.number, 1u);
    EXPECT_EQ(first.typeGuid, kk::Guid{});
    EXPECT_EQ(first.idGuid, kk::Guid{});
    EXPECT_EQ(first.offset, kMiB);
    EXPECT_EQ(first.length, 8 * kMiB);
    EXPECT_EQ(NameOf(first), u"NTFS / exFAT");
    EXPECT_EQ((*partitions)[1].number, 2u);
    EXPECT_EQ((*partitions)[1].offset, 16 * kMiB);
    EXPECT_EQ((*partitions)[1].length, kMiB);
    EXPECT_EQ(NameOf((*partitions)[1]), u"Linux");
}

TEST_F(ImageMbrPartitionsTest, EverySlotIsLookedAt)
{
    for (uint32_t slot = 1; slot <= 4; ++slot) {
        WriteSlot(slot, static_cast<uint8_t>(0x10 + slot), 0x01020304 * slot, 0x10203040 + slot);
    }
    MustOpenDisk();

    ASSERT_EQ(ReadMbr(), 0);
    ASSERT_EQ(partitions->Count(), 4u);
    for (uint32_t slot = 1; slot <= 4; ++slot) {
        const kk::ImagePartition& partition = (*partitions)[slot - 1];
        EXPECT_EQ(partition.number, slot);
        EXPECT_EQ(partition.offset, uint64_t{0x01020304} * slot * 512);
        EXPECT_EQ(partition.length, (uint64_t{0x10203040} + slot) * 512);
    }
}

TEST_F(ImageMbrPartitionsTest, PartitionsKeepTheNumberOfTheirSlot)
{
    WriteSlot(2, 0x07, 2048, 2048);
    WriteSlot(4, 0x0B, 8192, 2048);
    MustOpenDisk();

    ASSERT_EQ(ReadMbr(), 0);
    ASSERT_EQ(partitions->Count(), 2u);
    EXPECT_EQ((*partitions)[0].number, 2u);
    EXPECT_EQ((*partitions)[1].number, 4u);
}

TEST_F(ImageMbrPartitionsTest, CountsInSectorsOfTheImage)
{
    WriteSlot(1, 0x07, 0xFFFFFFFF, 0xFFFFFFFE);
    MustOpenDisk(4096);

    ASSERT_EQ(ReadMbr(), 0);
    EXPECT_EQ((*partitions)[0].offset, uint64_t{0xFFFFFFFF} * 4096);
    EXPECT_EQ((*partitions)[0].length, uint64_t{0xFFFFFFFE} * 4096);
}

TEST_F(ImageMbrPartitionsTest, BothBytesOfTheMarkCount)
{
    WriteSlot(1, 0x07, 2048, 2048);
    for (const std::vector<uint8_t>& mark : {std::vector<uint8_t>{0x55, 0xAB}, {0x54, 0xAA}, {0xAA, 0x55}, {0, 0}}) {
        Put(510, mark);
        MustOpenDisk();

        EXPECT_EQ(ReadMbr(), kMalformed);
        EXPECT_EQ(partitions->Count(), 0u);
    }
}

TEST_F(ImageMbrPartitionsTest, TheMarkLiesAt510WhateverTheSectorSize)
{
    WriteSlot(1, 0x07, 2048, 2048);
    Put(510, {0, 0});
    Put(4094, {0x55, 0xAA});
    MustOpenDisk(4096);

    EXPECT_EQ(ReadMbr(), kMalformed);
}

TEST_F(ImageMbrPartitionsTest, EmptyProtectiveAndSizelessSlotsAreSkipped)
{
    WriteSlot(1, 0x00, 2048, 2048);
    WriteSlot(2, 0xEE, 1, 0xFFFFFFFF);
    WriteSlot(3, 0x07, 4096, 0);
    WriteSlot(4, 0x07, 0, 1);
    MustOpenDisk();

    ASSERT_EQ(ReadMbr(), 0);
    ASSERT_EQ(partitions->Count(), 1u);
    EXPECT_EQ((*partitions)[0].number, 4u);
    EXPECT_EQ((*partitions)[0].offset, 0u);
    EXPECT_EQ((*partitions)[0].length, 512u);
}

TEST_F(ImageMbrPartitionsTest, EveryByteOfASizeCounts)
{
    for (const uint32_t count : {1u, 0x100u, 0x10000u, 0x1000000u}) {
        WriteSlot(1, 0x07, 2048, count);
        MustOpenDisk();

        ASSERT_EQ(ReadMbr(), 0) << count;
        EXPECT_EQ((*partitions)[0].length, uint64_t{count} * 512);
    }
}

TEST_F(ImageMbrPartitionsTest, ATableWithoutAUsedSlotIsNone)
{
    Put(510, {0x55, 0xAA});
    MustOpenDisk();
    EXPECT_EQ(ReadMbr(), kMalformed);

    WriteSlot(1, 0xEE, 1, 0xFFFFFFFF);
    MustOpenDisk();
    EXPECT_EQ(ReadMbr(), kMalformed);
    EXPECT_EQ(partitions->Count(), 0u);
}

TEST_F(ImageMbrPartitionsTest, KnownTypesHaveLabels)
{
    ExpectLabels({{0x06, u"FAT16"}, {0x0E, u"FAT16"}, {0x07, u"NTFS / exFAT"}, {0x27, u"Windows recovery"}});
    ExpectLabels({{0x0B, u"FAT32"}, {0x0C, u"FAT32"}, {0x82, u"Linux swap"}, {0x83, u"Linux"}});
    ExpectLabels({{0xAF, u"HFS+"}});
}

TEST_F(ImageMbrPartitionsTest, AllOtherTypesAreLabelledByTheirNumber)
{
    ExpectLabels({{0x42, u"Type 0x42"}, {0x05, u"Type 0x05"}, {0xFB, u"Type 0xFB"}});

    const std::string others = "\x06\x0E\x07\x0B\x0C\x27\x82\x83\xAF\xEE";
    const std::u16string digits = u"0123456789ABCDEF";
    std::vector<std::pair<uint8_t, std::u16string>> labels;
    for (unsigned type = 1; type < 256; ++type) {
        if (others.find(static_cast<char>(type)) == std::string::npos) {
            labels.emplace_back(type, u"Type 0x" + digits.substr(type / 16, 1) + digits.substr(type % 16, 1));
        }
        if (labels.size() == 4 || type == 255) {
            ExpectLabels(std::exchange(labels, {}));
        }
    }
}

TEST_F(ImageMbrPartitionsTest, AnExtendedPartitionIsListedInThePlaceOfItsDrives)
{
    machine::WriteMbrTable(disk, 512,
                           {.partitions = {{.start = kMiB, .length = kMiB}},
                            .logicals = {{.start = 8 * kMiB, .length = kMiB}, {.start = 16 * kMiB, .length = kMiB}},
                            .containerType = 0x05});
    MustOpenDisk();

    ASSERT_EQ(ReadMbr(), 0);
    ASSERT_EQ(partitions->Count(), 2u);
    EXPECT_EQ(NameOf((*partitions)[1]), u"Type 0x05");
    EXPECT_EQ((*partitions)[1].offset, 7 * kMiB);
    EXPECT_EQ((*partitions)[1].length, 10 * kMiB);
}

TEST_F(ImageMbrPartitionsTest, ASectorMustHoldATable)
{
    WriteSlot(1, 0x07, 2048, 2048);
    for (const uint32_t sectorSize : {0u, 1u, 64u, 511u}) {
        MustOpenDisk(sectorSize);

        EXPECT_EQ(ReadMbr(), kMalformed) << sectorSize;
    }
    MustOpenDisk(513);
    EXPECT_EQ(ReadMbr(), 0);
    EXPECT_EQ((*partitions)[0].offset, 2048 * 513u);
}

TEST_F(ImageMbrPartitionsTest, ASectorMayBeLargerThanTheDisk)
{
    WriteSlot(1, 0x07, 1, 1);
    MustOpenDisk(0xFFFFFFFF);
    machine.heap.ResetCounters();

    ASSERT_EQ(ReadMbr(), 0);
    EXPECT_EQ((*partitions)[0].offset, 0xFFFFFFFFu);
    EXPECT_LT(machine.heap.PeakBytes(), 2 * kDiskSize);
}

TEST_F(ImageMbrPartitionsTest, ADiskSmallerThanATableHasNone)
{
    WriteSlot(1, 0x07, 1, 1);
    MustOpen(VhdxBuilder(511).Data(0, {1}).Item({vhdx::kVirtualDiskSize, vhdx::LittleEndian(511, 8)}));

    EXPECT_EQ(ReadMbr(), kMalformed);
}

TEST_F(ImageMbrPartitionsTest, AFailingReadIsTheResult)
{
    WriteSlot(1, 0x07, 2048, 2048);
    MustOpenDisk();
    for (uint32_t nth = 1; nth <= 2; ++nth) {
        machine.faults.Clear();
        machine.faults.Fail({CallKind::ReadFile}, nth, 0xC0000010 + nth);

        EXPECT_EQ(ReadMbr(), Status(0xC0000010 + nth));
    }
}

TEST_F(ImageMbrPartitionsTest, EveryFailingAllocationIsTheSame)
{
    WriteSlot(1, 0x07, 2048, 2048);
    MustOpenDisk();
    for (uint64_t nth = 1; nth <= 2; ++nth) {
        machine.faults.Clear();
        machine.faults.Fail({CallKind::Allocate}, nth, 0);

        EXPECT_EQ(ReadMbr(), kOutOfMemory) << nth;
    }
}

}  // namespace
