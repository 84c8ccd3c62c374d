#include "machine/bitmap_answer.h"

#include <algorithm>
#include <cstring>

#include "backup/volume_bitmap.h"

namespace machine {

namespace {

constexpr uint32_t kSmallestAnswer = 24;

}  // namespace

ControlAnswer AnswerVolumeBitmap(NtfsReader& reader, const ControlRequest& request, uint64_t roundingUnit)
{
    kk::StartingLcnInput input = {};
    if (request.input.size() < sizeof(input) || request.outputRoom < kSmallestAnswer) {
        return {kBufferTooSmall};
    }
    std::memcpy(&input, request.input.data(), sizeof(input));
    const uint64_t totalClusters = reader.Geometry().totalClusters;
    if (input.startingLcn < 0 || static_cast<uint64_t>(input.startingLcn) >= totalClusters) {
        return {kInvalidParameter};
    }
    const auto asked = static_cast<uint64_t>(input.startingLcn);
    const uint64_t start = asked - asked % roundingUnit;
    const uint64_t clusters = totalClusters - start;
    const uint64_t wholeBytes = (clusters + 7) / 8;
    const uint64_t bytes = std::min<uint64_t>(wholeBytes, request.outputRoom - sizeof(kk::VolumeBitmapHeader));

    ControlAnswer answer;
    answer.status = bytes == wholeBytes ? kSuccess : kBufferOverflow;
    answer.output = BytesOf(kk::VolumeBitmapHeader{static_cast<int64_t>(start), static_cast<int64_t>(clusters)});
    answer.output.resize(sizeof(kk::VolumeBitmapHeader) + bytes);
    if (!reader.ReadBitmap(start / 8, std::span(answer.output).subspan(sizeof(kk::VolumeBitmapHeader)))) {
        return {kIoDeviceError};
    }
    if (bytes == wholeBytes && clusters % 8 != 0) {
        // Real systems leave these bits undefined; callers that believe them must be found out.
        answer.output.back() = static_cast<uint8_t>(answer.output.back() | (0xFFu << (clusters % 8)));
    }
    return answer;
}

}  // namespace machine
