#include "image/vhdx_reader.h"

#include "core/checked_math.h"
#include "core/file_opener.h"
#include "core/heap_block.h"
#include "core/status.h"
#include "image/vhdx_format.h"

namespace kk {

namespace {

bool IsGuid(const uint8_t* bytes, const Guid& guid)
{
    return SameBytes(bytes, &guid, sizeof(guid));
}

}  // namespace

KK_STATUS VhdxReader::Open(const char16_t* path)
{
    KK_TRY(OpenDevice(path, false, file_));
    KK_TRY(CheckIdentifier());
    Region metadata = {};
    KK_TRY(FindRegions(metadata));
    KK_TRY(ReadMetadata(metadata));
    if (blockSize_ == 0 || virtualSize_ == 0) {
        return KK_STATUS_REGISTRY_CORRUPT;
    }
    chunkRatio_ = Max(logicalSectorSize_ * kVhdxSectorsPerChunk / blockSize_, uint64_t{1});
    return KK_STATUS_SUCCESS;
}

KK_STATUS VhdxReader::CheckIdentifier()
{
    uint8_t signature[sizeof(kVhdxSignature)] = {};
    KK_TRY(ReadFile(0, signature, sizeof(signature)));
    return SameBytes(signature, kVhdxSignature, sizeof(signature)) ? KK_STATUS_SUCCESS : KK_STATUS_REGISTRY_CORRUPT;
}

KK_STATUS VhdxReader::FindRegions(Region& metadata)
{
    HeapBlock table;
    if (!table.Allocate(kVhdxRegionTableBytes)) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    const auto& header = *reinterpret_cast<const VhdxRegionTableHeader*>(table.Data());
    const auto* const entries = reinterpret_cast<const VhdxRegionEntry*>(table.Data() + sizeof(header));
    for (const uint64_t offset : kVhdxRegionTableOffsets) {
        // A copy that cannot be read or is damaged is passed over; the other one may do.
        if (Failed(ReadFile(offset, table.Data(), kVhdxRegionTableBytes)) ||
            header.signature.Get() != kVhdxRegionSignature || header.entryCount.Get() >= kVhdxRegionEntryLimit) {
            continue;
        }
        for (uint32_t i = 0; i < header.entryCount.Get(); ++i) {
            if (IsGuid(entries[i].guid, kVhdxBatRegion)) {
                batOffset_ = entries[i].fileOffset.Get();
            } else if (IsGuid(entries[i].guid, kVhdxMetadataRegion)) {
                metadata = {entries[i].fileOffset.Get(), entries[i].length.Get()};
            }
        }
        // What one copy told is kept when only the other tells the rest, on purpose: both describe the same file.
        if (batOffset_ != 0 && metadata.offset != 0) {
            return KK_STATUS_SUCCESS;
        }
    }
    return KK_STATUS_REGISTRY_CORRUPT;
}

KK_STATUS VhdxReader::ReadMetadata(const Region& region)
{
    if (region.length == 0) {
        return KK_STATUS_REGISTRY_CORRUPT;
    }
    // Before memory is taken: a region that claims more than there is must not cost more than there is.
    uint64_t fileSize = 0;
    (void)file_->QuerySize(&fileSize);
    if (fileSize != 0 && SaturatingAdd(region.offset, region.length) > fileSize) {
        return KK_STATUS_END_OF_FILE;
    }
    HeapBlock block;
    if (!block.Allocate(Max(uint64_t{region.length}, uint64_t{sizeof(VhdxMetadataHeader)}))) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    KK_TRY(ReadFile(region.offset, block.Data(), region.length));
    const auto& header = *reinterpret_cast<const VhdxMetadataHeader*>(block.Data());
    if (region.length < sizeof(header) ||
        !SameBytes(header.signature, kVhdxMetadataSignature, sizeof(kVhdxMetadataSignature))) {
        return KK_STATUS_REGISTRY_CORRUPT;
    }

    const auto* const entries = reinterpret_cast<const VhdxMetadataEntry*>(block.Data() + sizeof(header));
    const uint64_t room = (region.length - sizeof(header)) / sizeof(VhdxMetadataEntry);
    const uint64_t count = Min(uint64_t{header.entryCount.Get()}, room);
    for (uint64_t i = 0; i < count; ++i) {
        TakeItem(entries[i], block.Data(), region.length);
    }
    return KK_STATUS_SUCCESS;
}

void VhdxReader::TakeItem(const VhdxMetadataEntry& entry, const uint8_t* region, uint32_t regionLength)
{
    const uint64_t offset = entry.offset.Get();
    const uint32_t length = entry.length.Get();
    if (offset + length > regionLength) {
        return;
    }
    const uint8_t* const item = region + offset;
    constexpr uint32_t fileParametersBytes = 8;
    if (IsGuid(entry.itemGuid, kVhdxFileParametersItem) && length >= fileParametersBytes) {
        blockSize_ = LoadUnaligned<Le32>(item).Get();
    } else if (IsGuid(entry.itemGuid, kVhdxVirtualDiskSizeItem) && length >= sizeof(Le64)) {
        virtualSize_ = LoadUnaligned<Le64>(item).Get();
    } else if (IsGuid(entry.itemGuid, kVhdxLogicalSectorSizeItem) && length >= sizeof(Le32)) {
        logicalSectorSize_ = LoadUnaligned<Le32>(item).Get();
    }
}

KK_STATUS VhdxReader::Read(uint64_t offset, void* buffer, uint32_t length)
{
    auto* to = static_cast<uint8_t*>(buffer);
    while (length > 0 && offset < virtualSize_) {
        const uint64_t toBlockEnd = blockSize_ - offset % blockSize_;
        const auto piece = static_cast<uint32_t>(Min(Min(toBlockEnd, uint64_t{length}), virtualSize_ - offset));
        KK_TRY(ReadInBlock(offset, to, piece));
        offset += piece;
        to += piece;
        length -= piece;
    }
    ZeroBytes(to, length);
    return KK_STATUS_SUCCESS;
}

KK_STATUS VhdxReader::ReadInBlock(uint64_t offset, uint8_t* buffer, uint32_t length)
{
    const uint64_t block = offset / blockSize_;
    // After every chunk of payload blocks the table has an entry for the chunk's sector bitmap.
    const uint64_t index = SaturatingAdd(block, block / chunkRatio_);
    Le64 entry;
    KK_TRY(ReadFile(SaturatingAdd(batOffset_, SaturatingMultiply(index, sizeof(entry))), &entry, sizeof(entry)));

    const uint64_t fileOffset = entry.Get() & kVhdxBlockOffsetMask;
    if ((entry.Get() & kVhdxBlockStateMask) != kVhdxBlockFullyPresent || fileOffset == 0) {
        ZeroBytes(buffer, length);
        return KK_STATUS_SUCCESS;
    }
    return ReadFile(SaturatingAdd(fileOffset, offset % blockSize_), buffer, length);
}

/// No file reaches beyond the largest signed offset, whatever an image says.
KK_STATUS VhdxReader::ReadFile(uint64_t offset, void* buffer, uint32_t length)
{
    constexpr auto end = static_cast<uint64_t>(INT64_MAX);
    if (offset > end - length) {
        return KK_STATUS_END_OF_FILE;
    }
    return file_->ReadAt(offset, buffer, length);
}

}  // namespace kk
