#include "vhdx_reader_fixture.h"

namespace {

using vhdx::Item;
using vhdx::LittleEndian;

class VhdxReaderMetadataTest : public VhdxReaderTest {
protected:
    static VhdxBuilder Disk() { return VhdxBuilder(64 * kMiB); }

    /// A file whose metadata region is `length` bytes long, of which the usual items take more.
    static VhdxBuilder DiskWithMetadata(uint32_t length)
    {
        VhdxBuilder builder = Disk();
        std::vector<vhdx::Region> regions = builder.UsualRegions();
        regions[0].length = length;
        return builder.Regions(regions);
    }

    /// A metadata table of as many bytes as it needs: entries for file parameters and size, and the two items.
    static VhdxBuilder DiskWithSmallMetadata(uint32_t regionLength, uint16_t entryCount)
    {
        VhdxBuilder builder = DiskWithMetadata(regionLength);
        builder.Item({vhdx::kFileParameters, LittleEndian(0x100000, 8), 96})
            .Item({vhdx::kVirtualDiskSize, LittleEndian(32 * kMiB, 8), 104})
            .WithoutItem(vhdx::kVirtualDiskId)
            .WithoutItem(vhdx::kLogicalSectorSize)
            .WithoutItem(vhdx::kPhysicalSectorSize);
        return builder.FileBytes(vhdx::kMetadataOffset + 10, LittleEndian(entryCount, 2))
            .FileBytes(vhdx::kMetadataOffset + 96, LittleEndian(0x100000, 8))
            .FileBytes(vhdx::kMetadataOffset + 104, LittleEndian(32 * kMiB, 8));
    }
};

TEST_F(VhdxReaderMetadataTest, EveryLetterOfTheSignatureCounts)
{
    for (uint64_t i = 0; i < 8; ++i) {
        EXPECT_EQ(Open(Disk().FileBytes(vhdx::kMetadataOffset + i, {'M'})), kMalformed) << i;
    }
}

TEST_F(VhdxReaderMetadataTest, ARegionTooShortForTheTableIsMalformed)
{
    for (const uint32_t length : {0u, 1u, 7u, 8u, 9u, 12u, 31u, 32u}) {
        EXPECT_EQ(Open(DiskWithMetadata(length)), kMalformed) << length;
    }
}

TEST_F(VhdxReaderMetadataTest, ARegionBeyondTheFileEndsTooEarly)
{
    VhdxBuilder builder = Disk();
    for (const uint64_t offset : {40 * kGiB, uint64_t{INT64_MAX} - 10, uint64_t{INT64_MAX} + 1, UINT64_MAX}) {
        EXPECT_EQ(Open(builder.Regions({{vhdx::kMetadataRegion, offset, 0x10000}, builder.UsualRegions()[1]})),
                  kEndOfFile)
            << offset;
    }
    EXPECT_EQ(Open(DiskWithMetadata(0xFFFFFFFF)), kEndOfFile);
}

TEST_F(VhdxReaderMetadataTest, AnEmptyRegionIsMalformedWhereverItLies)
{
    VhdxBuilder builder = Disk();
    EXPECT_EQ(Open(builder.Regions({{vhdx::kMetadataRegion, 40 * kGiB, 0}, builder.UsualRegions()[1]})), kMalformed);
    EXPECT_EQ(Open(builder.Regions({{vhdx::kMetadataRegion, 40 * kGiB, 1}, builder.UsualRegions()[1]})), kEndOfFile);
}

TEST_F(VhdxReaderMetadataTest, ARegionThatClaimsMoreThanTheFileTakesNoMemory)
{
    DiskWithMetadata(0xFFFFFFFF).Save(file);
    machine.heap.ResetCounters();

    EXPECT_EQ(OpenFile(), kEndOfFile);
    EXPECT_LT(machine.heap.PeakBytes(), 2 * kMiB);
}

TEST_F(VhdxReaderMetadataTest, ARegionMayEndWithTheFile)
{
    Disk().Save(file);
    std::filesystem::resize_file(file, vhdx::kMetadataOffset + vhdx::kMetadataBytes);
    EXPECT_EQ(OpenFile(), 0);

    std::filesystem::resize_file(file, vhdx::kMetadataOffset + vhdx::kMetadataBytes - 1);
    EXPECT_EQ(OpenFile(), kEndOfFile);
}

TEST_F(VhdxReaderMetadataTest, ADiskOrBlockOfNoSizeIsMalformed)
{
    EXPECT_EQ(Open(Disk().Item({vhdx::kFileParameters, LittleEndian(0, 8)})), kMalformed);
    EXPECT_EQ(Open(Disk().Item({vhdx::kVirtualDiskSize, LittleEndian(0, 8)})), kMalformed);
    EXPECT_EQ(Open(Disk().WithoutItem(vhdx::kFileParameters)), kMalformed);
    EXPECT_EQ(Open(Disk().WithoutItem(vhdx::kVirtualDiskSize)), kMalformed);
}

TEST_F(VhdxReaderMetadataTest, TheBlockSizeIsTheFirstHalfOfItsItem)
{
    MustOpen(Disk().Item({vhdx::kFileParameters, LittleEndian(0xFFFF'FFFF'0080'0000, 8)}));

    EXPECT_EQ(reader->BlockSize(), 0x800000u);
    EXPECT_EQ(Open(Disk().Item({vhdx::kFileParameters, LittleEndian(0x1'0000'0000, 8)})), kMalformed);
}

TEST_F(VhdxReaderMetadataTest, WithoutASectorSizeItIs512)
{
    MustOpen(Disk().SectorSize(4096).WithoutItem(vhdx::kLogicalSectorSize));

    EXPECT_EQ(reader->LogicalSectorSize(), 512u);
}

TEST_F(VhdxReaderMetadataTest, TheSectorSizeMayBeAnything)
{
    for (const uint32_t size : {0u, 1u, 520u, 0xFFFFFFFFu}) {
        MustOpen(Disk().Item({vhdx::kLogicalSectorSize, LittleEndian(size, 4)}));

        EXPECT_EQ(reader->LogicalSectorSize(), size);
    }
}

TEST_F(VhdxReaderMetadataTest, ItemsThatAreTooShortAreNotThere)
{
    EXPECT_EQ(Open(Disk().Item({vhdx::kFileParameters, LittleEndian(0x100000, 8), {}, 7})), kMalformed);
    EXPECT_EQ(Open(Disk().Item({vhdx::kFileParameters, LittleEndian(0x100000, 8), {}, 4})), kMalformed);
    EXPECT_EQ(Open(Disk().Item({vhdx::kVirtualDiskSize, LittleEndian(64 * kMiB, 8), {}, 7})), kMalformed);

    MustOpen(Disk().Item({vhdx::kLogicalSectorSize, LittleEndian(4096, 4), {}, 3}));
    EXPECT_EQ(reader->LogicalSectorSize(), 512u);
}

TEST_F(VhdxReaderMetadataTest, ItemsMayBeLongerThanNeeded)
{
    MustOpen(Disk()
                 .Item({vhdx::kFileParameters, LittleEndian(0x200000, 9)})
                 .Item({vhdx::kVirtualDiskSize, LittleEndian(32 * kMiB, 100)})
                 .Item({vhdx::kLogicalSectorSize, LittleEndian(4096, 8)}));

    EXPECT_EQ(reader->BlockSize(), 0x200000u);
    EXPECT_EQ(reader->VirtualSize(), 32 * kMiB);
    EXPECT_EQ(reader->LogicalSectorSize(), 4096u);
}

TEST_F(VhdxReaderMetadataTest, TheLastOfSeveralItemsOfAKindCounts)
{
    MustOpen(Disk()
                 .OneMoreItem({vhdx::kVirtualDiskSize, LittleEndian(16 * kMiB, 8)})
                 .OneMoreItem({vhdx::kVirtualDiskSize, LittleEndian(32 * kMiB, 8)})
                 .OneMoreItem({vhdx::kLogicalSectorSize, LittleEndian(4096, 4)})
                 .OneMoreItem({vhdx::kFileParameters, LittleEndian(0x400000, 8)}));

    EXPECT_EQ(reader->VirtualSize(), 32 * kMiB);
    EXPECT_EQ(reader->LogicalSectorSize(), 4096u);
    EXPECT_EQ(reader->BlockSize(), 0x400000u);
    EXPECT_EQ(Open(Disk().OneMoreItem({vhdx::kVirtualDiskSize, LittleEndian(0, 8)})), kMalformed);
}

TEST_F(VhdxReaderMetadataTest, ItemsOfOtherKindsAreIgnored)
{
    EXPECT_EQ(Open(Disk()
                       .WithoutItem(vhdx::kVirtualDiskId)
                       .WithoutItem(vhdx::kPhysicalSectorSize)
                       .OneMoreItem({{1, 2, 3, {4}}, LittleEndian(0, 8)})),
              0);
}

TEST_F(VhdxReaderMetadataTest, EveryByteOfAnItemsIdentifierCounts)
{
    for (uint64_t at = 0; at < 16; ++at) {
        EXPECT_EQ(Open(Disk().FileBytes(vhdx::kMetadataOffset + 32 + at, {0x00})), kMalformed) << at;
        EXPECT_EQ(Open(Disk().FileBytes(vhdx::kMetadataOffset + 64 + at, {0x00})), kMalformed) << at;
    }
    constexpr uint64_t sectorSizeEntry = vhdx::kMetadataOffset + 32 + 3 * 32;
    for (uint64_t at = 0; at < 16; ++at) {
        MustOpen(Disk().SectorSize(4096).FileBytes(sectorSizeEntry + at, {0x00}));
        EXPECT_EQ(reader->LogicalSectorSize(), 512u) << at;
    }
}

TEST_F(VhdxReaderMetadataTest, AnItemMayEndWithTheRegionAndNoLater)
{
    const uint64_t end = vhdx::kMetadataOffset + vhdx::kMetadataBytes;
    const auto disk = [&](uint32_t offset, uint32_t length) {
        return Disk().Item({vhdx::kVirtualDiskSize, {}, offset, length}).FileBytes(end - 8, LittleEndian(48 * kMiB, 8));
    };

    MustOpen(disk(vhdx::kMetadataBytes - 8, 8));
    EXPECT_EQ(reader->VirtualSize(), 48 * kMiB);
    EXPECT_EQ(Open(disk(vhdx::kMetadataBytes - 8, 9)), kMalformed);
    EXPECT_EQ(Open(disk(vhdx::kMetadataBytes - 7, 8)), kMalformed);
    EXPECT_EQ(Open(disk(vhdx::kMetadataBytes, 8)), kMalformed);
    EXPECT_EQ(Open(disk(vhdx::kMetadataBytes, 0)), kMalformed);
    EXPECT_EQ(Open(disk(0xFFFFFFFF, 8)), kMalformed);
    EXPECT_EQ(Open(disk(0xFFFFFFF8, 8)), kMalformed) << "an end at 2^32, which is not 0";
    EXPECT_EQ(Open(disk(8, 0xFFFFFFF8)), kMalformed);
    EXPECT_EQ(Open(disk(0xFFFFFFFF, 0xFFFFFFFF)), kMalformed);
}

TEST_F(VhdxReaderMetadataTest, AnItemMayLieAnywhereInTheRegion)
{
    MustOpen(Disk().Item({vhdx::kVirtualDiskSize, {}, 0, 8}));

    EXPECT_EQ(reader->VirtualSize(), 0x6174'6164'6174'656Du) << "the letters of the signature";
}

TEST_F(VhdxReaderMetadataTest, EntriesBeyondTheCountAreNotThere)
{
    EXPECT_EQ(Open(Disk().FileBytes(vhdx::kMetadataOffset + 10, LittleEndian(0, 2))), kMalformed);
    EXPECT_EQ(Open(Disk().FileBytes(vhdx::kMetadataOffset + 10, LittleEndian(1, 2))), kMalformed);
    EXPECT_EQ(Open(Disk().FileBytes(vhdx::kMetadataOffset + 10, LittleEndian(2, 2))), 0);
}

TEST_F(VhdxReaderMetadataTest, TheCountTakesTwoBytes)
{
    VhdxBuilder builder = Disk();
    for (int i = 0; i < 300; ++i) {
        builder.OneMoreItem({{1, 2, 3, {4}}, {}});
    }
    MustOpen(builder.OneMoreItem({vhdx::kVirtualDiskSize, LittleEndian(32 * kMiB, 8)})
                 .FileBytes(vhdx::kMetadataOffset + 12, {0xFF, 0xFF}));

    EXPECT_EQ(reader->VirtualSize(), 32 * kMiB);
}

TEST_F(VhdxReaderMetadataTest, EntriesEndWithTheRegionWhateverTheCount)
{
    for (const int count : {2, 3, 4, 0xFFFF}) {
        MustOpen(DiskWithSmallMetadata(112, static_cast<uint16_t>(count)));

        EXPECT_EQ(reader->VirtualSize(), 32 * kMiB);
        EXPECT_EQ(reader->BlockSize(), 0x100000u);
    }
}

TEST_F(VhdxReaderMetadataTest, AnEntryThatTheRegionCutsOffIsNotThere)
{
    EXPECT_EQ(Open(DiskWithSmallMetadata(95, 2).FileBytes(vhdx::kMetadataOffset + 48, LittleEndian(0, 8))), kMalformed);
    EXPECT_EQ(Open(DiskWithSmallMetadata(63, 2)), kMalformed);
}

}  // namespace
