#include "backup/used_extents.h"

#include "backup/bitmap_runs.h"
#include "backup/volume_bitmap.h"
#include "core/checked_math.h"
#include "core/file_opener.h"
#include "core/heap_block.h"
#include "core/status.h"

namespace kk {

namespace {

// One request for each 2^23 clusters, which are 32 GiB when they have the usual size.
constexpr uint32_t kBitmapBytes = 1048584;
constexpr uint32_t kAnswerBytes = sizeof(VolumeBitmapHeader) + kBitmapBytes;
constexpr uint64_t kBitsInAnswer = uint64_t{kBitmapBytes} * 8;
static_assert(kBitsInAnswer % 64 == 0, "runs are found a whole word at a time");

/// What one request told.
struct BitmapPiece {
    uint64_t firstCluster;  // of bit 0; the system rounds the cluster asked for down
    uint64_t bitCount;      // bits that are there
    bool moreFollows;
};

/// Asks for the bitmap from `cluster` on. Answers that make no sense are KK_STATUS_UNSUCCESSFUL.
KK_STATUS RequestPiece(DeviceFile& volume, uint64_t cluster, uint32_t clusterSize, uint8_t* answer, BitmapPiece& piece)
{
    const StartingLcnInput input = {static_cast<int64_t>(cluster)};
    ZeroBytes(answer, sizeof(VolumeBitmapHeader));
    uint32_t returned = 0;
    const KK_STATUS status =
        volume.Control(kFsctlGetVolumeBitmap, &input, sizeof(input), answer, kAnswerBytes, &returned);
    if (Failed(status) && status != kStatusBufferOverflow) {
        return status;
    }

    const auto& header = *reinterpret_cast<const VolumeBitmapHeader*>(answer);
    if (returned < sizeof(header) || header.startingLcn < 0 || header.bitmapSize < 0) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    const auto reported = static_cast<uint64_t>(header.bitmapSize);
    piece.firstCluster = static_cast<uint64_t>(header.startingLcn);
    const uint64_t volumeBytes = SaturatingMultiply(SaturatingAdd(piece.firstCluster, reported), clusterSize);
    if (volumeBytes > static_cast<uint64_t>(INT64_MAX)) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    // The size counts to the end of the volume, however little of the bitmap fitted. The system's other way of saying
    // that more follows, "more entries", is no failure, so it cannot be told from success here and need not be.
    const uint64_t bitsReturned = (uint64_t{returned} - sizeof(header)) * 8;
    piece.bitCount = Min(reported, Min(kBitsInAnswer, bitsReturned));
    piece.moreFollows = status == kStatusBufferOverflow || reported > piece.bitCount;
    return KK_STATUS_SUCCESS;
}

}  // namespace

KK_STATUS GetVolumeUsedExtents(const char16_t* path, uint32_t clusterSize, Array<VolumeExtent>& extents)
{
    if (clusterSize == 0) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    HeapBlock answer;  // before the volume, so that it outlives it
    DevicePtr volume;
    KK_TRY(OpenDevice(path, false, volume));
    if (!answer.Allocate(kAnswerBytes)) {
        return KK_STATUS_UNSUCCESSFUL;  // and not "no memory", on purpose: callers know this failure as "no list"
    }

    BitmapRuns runs(clusterSize, extents);
    for (uint64_t cluster = 0;;) {
        BitmapPiece piece = {};
        KK_TRY(RequestPiece(*volume, cluster, clusterSize, answer.Data(), piece));
        if (piece.firstCluster > cluster) {
            // On purpose: clusters that nobody told about must not pass for free ones.
            return KK_STATUS_UNSUCCESSFUL;
        }
        // An answer that starts early repeats clusters; they must not be counted twice.
        const uint64_t repeated = cluster - piece.firstCluster;
        runs.Add(answer.Data() + sizeof(VolumeBitmapHeader), repeated, piece.bitCount, piece.firstCluster);
        if (!piece.moreFollows) {
            break;
        }
        const uint64_t next = piece.firstCluster + piece.bitCount;
        if (next <= cluster) {
            return KK_STATUS_UNSUCCESSFUL;
        }
        cluster = next;
    }
    runs.Finish();
    return KK_STATUS_SUCCESS;
}

}  // namespace kk
