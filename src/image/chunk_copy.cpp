#include "image/chunk_copy.h"

#include "core/checked_math.h"
#include "core/status.h"
#include "core/transfer.h"

namespace kk {

KK_STATUS CopyFromImage(VhdxReader& image, const ImageRange& range, DeviceFile& target, uint64_t to, uint8_t* buffer)
{
    for (uint64_t done = 0; done < range.length;) {
        const uint64_t from = SaturatingAdd(range.offset, done);
        // Zeros from here on; a table may claim so many that reading them would take years.
        if (from >= image.VirtualSize()) {
            break;
        }
        const auto bytes = static_cast<uint32_t>(Min(range.length - done, uint64_t{kTransferBytes}));
        KK_TRY(image.Read(from, buffer, bytes));
        KK_TRY(WriteUnlessZero(target, SaturatingAdd(to, done), buffer, bytes));
        done += bytes;
    }
    return KK_STATUS_SUCCESS;
}

}  // namespace kk
