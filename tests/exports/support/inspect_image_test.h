#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "exports/support/export_test.h"
#include "machine/table_builder.h"
#include "machine/table_format.h"
#include "support/vhdx_builder.h"

inline constexpr int32_t kMalformed = Status(0xC000014C);
inline constexpr uint32_t kMbrStyle = 1;
inline constexpr uint32_t kGptStyle = 2;
inline constexpr uint8_t kDirt = 0xEE;

using Bytes = std::vector<uint8_t>;

inline Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline Bytes BytesOf(const kk::Guid& guid)
{
    Bytes bytes(sizeof(guid));
    std::memcpy(bytes.data(), &guid, sizeof(guid));
    return bytes;
}

inline Bytes Slice(const Bytes& bytes, size_t offset, size_t length)
{
    const auto first = bytes.begin() + static_cast<ptrdiff_t>(offset);
    return {first, first + static_cast<ptrdiff_t>(length)};
}

/// A name field: the text and zeros.
inline Bytes NameBytes(const std::u16string& text)
{
    Bytes bytes;
    for (const char16_t unit : text) {
        bytes = bytes + vhdx::LittleEndian(unit, 2);
    }
    bytes.resize(72);
    return bytes;
}

class InspectImageTest : public ExportTest {
protected:
    static constexpr uint64_t kDiskSize = 64 * kMiB;

    VhdxBuilder Image(uint32_t sectorSize = 512)
    {
        VhdxBuilder builder(disk.Size());
        return builder.SectorSize(sectorSize).Data(disk);
    }
    int32_t Inspect(const VhdxBuilder& image)
    {
        image.Save(file);
        return InspectFile();
    }
    /// All outputs hold dirt before, and records lie at odd addresses.
    int32_t InspectFile(uint32_t capacity = 8)
    {
        infoBytes.assign(1 + sizeof(ImageInfoRecord), kDirt);
        recordBytes.assign(1 + 8 * sizeof(ImagePartitionRecord), kDirt);
        count = 0xDDDDDDDD;
        return api.inspectImage(WindowsPath(file).c_str(), reinterpret_cast<ImageInfoRecord*>(infoBytes.data() + 1),
                                reinterpret_cast<ImagePartitionRecord*>(recordBytes.data() + 1), capacity, &count);
    }

    Bytes Info() const { return {infoBytes.begin() + 1, infoBytes.end()}; }
    Bytes Record(size_t index) const
    {
        const auto first = recordBytes.begin() + 1 + static_cast<ptrdiff_t>(index * sizeof(ImagePartitionRecord));
        return {first, first + sizeof(ImagePartitionRecord)};
    }
    uint32_t Style() const { return infoBytes[1 + 36]; }
    bool IsDirt(const Bytes& bytes) const
    {
        return std::ranges::all_of(bytes, [](uint8_t byte) { return byte == kDirt; });
    }
    void ExpectNothingButCountWritten() const
    {
        EXPECT_TRUE(IsDirt(infoBytes));
        EXPECT_TRUE(IsDirt(recordBytes));
        EXPECT_EQ(count, 0u);
    }

    void PutGpt(const machine::GptTable& table, uint32_t sectorSize = 512)
    {
        machine::WriteGptTable(disk, sectorSize, table);
    }
    void PutTwoGptPartitions(uint32_t sectorSize = 512)
    {
        PutGpt(
            {.partitions = {{.start = kMiB, .length = 8 * kMiB, .name = u"First", .attributes = 0x8000'0000'0000'0001},
                            {.start = 16 * kMiB,
                             .length = kMiB,
                             .type = machine::kEfiSystemType,
                             .name = u"123456789012345678901234567890123456",
                             .slot = 6}}},
            sectorSize);
    }
    void Put(uint64_t offset, const Bytes& bytes) { ASSERT_TRUE(disk.Write(offset, bytes)); }
    void PutMbrSlot(uint64_t slot, uint8_t type, uint32_t firstSector, uint32_t sectorCount)
    {
        Put(446 + (slot - 1) * 16,
            Bytes{0, 0, 0, 0, type, 0, 0, 0} + vhdx::LittleEndian(firstSector, 4) + vhdx::LittleEndian(sectorCount, 4));
        Put(510, {0x55, 0xAA});
    }

    TemporaryFolder folder;
    std::filesystem::path file = folder / "image.vhdx";
    machine::MemoryStorage disk{kDiskSize};
    Bytes infoBytes;
    Bytes recordBytes;
    uint32_t count = 0;
};
