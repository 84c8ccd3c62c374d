#include "image/image_sector.h"

#include "core/checked_math.h"
#include "partition/table_sector.h"

namespace kk {

KK_STATUS ReadImageSector(VhdxReader& reader, uint64_t lba, HeapBlock& sector)
{
    constexpr uint32_t largestRead = 0x10000;
    const uint32_t sectorSize = reader.LogicalSectorSize();
    const uint32_t bytes = Min(sectorSize, largestRead);
    if (!sector.Allocate(SectorBufferBytes(bytes))) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    return reader.Read(SaturatingMultiply(lba, sectorSize), sector.Data(), bytes);
}

}  // namespace kk
