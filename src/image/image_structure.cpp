#include "image/image_structure.h"

#include "core/checked_math.h"
#include "core/status.h"

namespace kk {

KK_STATUS ReadImageStructure(VhdxReader& reader, uint64_t offset, uint32_t length, uint32_t unit, HeapBlock& block,
                             uint64_t& bytes)
{
    const uint64_t rest = offset < reader.VirtualSize() ? reader.VirtualSize() - offset : 0;
    const auto present = static_cast<uint32_t>(Min(uint64_t{length}, rest));
    bytes = SaturatingRoundUp(present, unit);
    if (!block.Allocate(Max(bytes, uint64_t{unit}))) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    return reader.Read(offset, block.Data(), present);
}

}  // namespace kk
