#include "core/transfer.h"

#include "core/zero_scan.h"

namespace kk {

KK_STATUS WriteUnlessZero(DeviceFile& target, uint64_t offset, const uint8_t* bytes, uint32_t length)
{
    return IsAllZero(bytes, length) ? KK_STATUS_SUCCESS : target.WriteAt(offset, bytes, length);
}

}  // namespace kk
