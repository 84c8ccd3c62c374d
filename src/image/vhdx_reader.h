#pragma once

#include <cstdint>

#include "core/device_file.h"
#include "disk/disk_layout.h"

namespace kk {

struct VhdxMetadataEntry;

/// Reads the disk in a VHDX file, growing or fixed, straight from the file. The log is not replayed, checksums are not
/// looked at, a parent is not followed, and blocks that are not wholly present read as zeros: a full image that was
/// detached in order needs none of that.
class VhdxReader {
public:
    /// Opens the file and finds what reading needs; once in the object's life. KK_STATUS_REGISTRY_CORRUPT for all that
    /// is no such file; KK_STATUS_UNSUCCESSFUL when memory ran out; KK_STATUS_END_OF_FILE when the metadata lies beyond
    /// the file's end; the status of the failing open or read.
    [[nodiscard]] KK_STATUS Open(const char16_t* path);

    /// Fills all `length` bytes from byte `offset` of the disk, with zeros beyond its end. KK_STATUS_END_OF_FILE when
    /// what the block table names lies beyond the file's end; the status of the failing read.
    [[nodiscard]] KK_STATUS Read(uint64_t offset, void* buffer, uint32_t length);

    /// Bytes of the disk, not 0 once the file is open.
    [[nodiscard]] uint64_t VirtualSize() const { return virtualSize_; }
    /// Bytes of a block, not 0 once the file is open.
    [[nodiscard]] uint32_t BlockSize() const { return blockSize_; }
    /// Bytes of a sector as the file says, which may be anything, 0 too.
    [[nodiscard]] uint32_t LogicalSectorSize() const { return logicalSectorSize_; }

private:
    struct Region {
        uint64_t offset;
        uint32_t length;
    };

    [[nodiscard]] KK_STATUS CheckIdentifier();
    [[nodiscard]] KK_STATUS FindRegions(Region& metadata);
    [[nodiscard]] KK_STATUS ReadMetadata(const Region& region);
    void TakeItem(const VhdxMetadataEntry& entry, const uint8_t* region, uint32_t regionLength);
    [[nodiscard]] KK_STATUS ReadInBlock(uint64_t offset, uint8_t* buffer, uint32_t length);
    [[nodiscard]] KK_STATUS ReadFile(uint64_t offset, void* buffer, uint32_t length);

    DevicePtr file_;
    uint64_t virtualSize_ = 0;
    uint32_t blockSize_ = 0;
    uint32_t logicalSectorSize_ = kDefaultSectorSize;
    uint64_t batOffset_ = 0;
    uint64_t chunkRatio_ = 1;  // payload blocks to a sector-bitmap block
};

}  // namespace kk
