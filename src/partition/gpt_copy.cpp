#include "partition/gpt_copy.h"

#include "core/checked_math.h"
#include "core/status.h"
#include "partition/crc32.h"
#include "partition/table_sector.h"

namespace kk {

namespace {

/// False when the product does not fit: a wrapped offset would be somewhere else on the disk.
bool OffsetOf(uint64_t lba, uint32_t sectorSize, uint64_t& offset)
{
    offset = SaturatingMultiply(lba, sectorSize);
    return offset != kMaxU64;
}

}  // namespace

KK_STATUS GptCopy::ReadHeader(uint64_t headerLba)
{
    if (sectorSize_ < sizeof(GptHeader) || !OffsetOf(headerLba, sectorSize_, headerOffset_)) {
        return KK_STATUS_REGISTRY_CORRUPT;
    }
    if (!sector_.Allocate(SectorBufferBytes(sectorSize_))) {
        return KK_STATUS_NO_MEMORY;
    }
    KK_TRY(disk_.ReadAt(headerOffset_, sector_.Data(), sectorSize_));
    return HasGptSignature(Header()) ? KK_STATUS_SUCCESS : KK_STATUS_REGISTRY_CORRUPT;
}

KK_STATUS GptCopy::ReadEntries()
{
    if (!HasSaneEntries(Header())) {
        return KK_STATUS_REGISTRY_CORRUPT;
    }
    // The format sets no upper bound on an entry's size.
    const uint64_t bytes = uint64_t{EntryCount()} * EntryBytes();
    if (bytes > UINT32_MAX) {
        return KK_STATUS_NO_MEMORY;
    }
    arrayBytes_ = static_cast<uint32_t>(bytes);
    if (!OffsetOf(Header().entriesLba.Get(), sectorSize_, arrayOffset_)) {
        return KK_STATUS_REGISTRY_CORRUPT;
    }
    if (!array_.Allocate(arrayBytes_)) {
        return KK_STATUS_NO_MEMORY;
    }
    return disk_.ReadAt(arrayOffset_, array_.Data(), arrayBytes_);
}

KK_STATUS GptCopy::Write()
{
    GptHeader& header = Header();
    header.entriesCrc32 = Crc32(array_.Data(), arrayBytes_);
    header.headerCrc32 = uint32_t{0};
    // Never more than is written back, on purpose: of a longer header nothing else is known.
    header.headerCrc32 = Crc32(&header, Min(uint64_t{header.headerSize.Get()}, uint64_t{sizeof(header)}));
    ZeroBytes(sector_.Data() + sizeof(header), sectorSize_ - sizeof(header));

    KK_TRY(disk_.WriteAt(arrayOffset_, array_.Data(), arrayBytes_));
    return disk_.WriteAt(headerOffset_, sector_.Data(), sectorSize_);
}

}  // namespace kk
