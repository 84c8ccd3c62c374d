#pragma once

#include <cstdint>

#include "core/device_file.h"
#include "image/vhdx_reader.h"

namespace kk {

/// Bytes of an image's disk that go to a target.
struct ImageRange {
    uint64_t offset;
    uint64_t length;
};

/// Copies a range to byte `to` of the target, kTransferBytes at a time, which is what `buffer` holds. A chunk of zeros
/// is not written, any other is written whole. Ends at the first read or write that fails, with its status.
[[nodiscard]] KK_STATUS CopyFromImage(VhdxReader& image, const ImageRange& range, DeviceFile& target, uint64_t to,
                                      uint8_t* buffer);

}  // namespace kk
