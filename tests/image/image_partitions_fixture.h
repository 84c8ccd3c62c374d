#pragma once

#include "image/image_partitions.h"

#include <string>

#include "machine/table_builder.h"
#include "machine/table_format.h"
#include "vhdx_reader_fixture.h"

/// A test of partition tables inside an image.
class ImagePartitionsTest : public VhdxReaderTest {
protected:
    static constexpr uint64_t kDiskSize = 64 * kMiB;

    /// Opens an image of `disk`.
    void MustOpenDisk(uint32_t sectorSize = 512)
    {
        MustOpen(VhdxBuilder(disk.Size()).SectorSize(sectorSize).Data(disk));
    }
    KK_STATUS ReadGpt()
    {
        partitions.emplace();
        return kk::ReadGptPartitions(*reader, diskGuid, *partitions);
    }
    KK_STATUS ReadMbr()
    {
        partitions.emplace();
        return kk::ReadMbrPartitions(*reader, *partitions);
    }

    void Put(uint64_t offset, const std::vector<uint8_t>& what) { ASSERT_TRUE(disk.Write(offset, what)); }
    void PutNumber(uint64_t offset, uint64_t value, size_t width) { Put(offset, vhdx::LittleEndian(value, width)); }

    static std::u16string NameOf(const kk::ImagePartition& partition)
    {
        const std::u16string name(partition.name, std::size(partition.name));
        return name.substr(0, name.find(u'\0'));
    }

    machine::MemoryStorage disk{kDiskSize};
    kk::Guid diskGuid = {};
    std::optional<kk::ImagePartitionList> partitions;
};
