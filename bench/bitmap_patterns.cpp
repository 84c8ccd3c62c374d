#include "bitmap_patterns.h"

#include <cmath>
#include <cstring>
#include <memory>
#include <random>

#include "backup/volume_bitmap.h"
#include "disk/volume_controls.h"

namespace bench {

namespace {

BitmapPattern RepeatedByte(uint64_t clusterCount, uint8_t byte)
{
    return {clusterCount, std::vector<uint8_t>((clusterCount + 7) / 8, byte)};
}

machine::ControlAnswer VolumeDataAnswer(uint64_t clusterCount)
{
    constexpr uint32_t kSectorBytes = 512;
    kk::NtfsVolumeData data = {};
    data.numberSectors = static_cast<int64_t>(clusterCount * (kClusterBytes / kSectorBytes));
    data.totalClusters = static_cast<int64_t>(clusterCount);
    data.bytesPerSector = kSectorBytes;
    data.bytesPerCluster = kClusterBytes;
    data.bytesPerFileRecordSegment = 1024;
    return {.output = machine::BytesOf(data)};
}

/// The whole bitmap at once, which is all that is asked for: one request covers it.
machine::ControlAnswer WholeBitmapAnswer(const BitmapPattern& pattern)
{
    const kk::VolumeBitmapHeader header = {0, static_cast<int64_t>(pattern.clusterCount)};
    machine::ControlAnswer answer;
    answer.output.resize(sizeof(header) + pattern.bytes.size());
    std::memcpy(answer.output.data(), &header, sizeof(header));
    std::memcpy(answer.output.data() + sizeof(header), pattern.bytes.data(), pattern.bytes.size());
    return answer;
}

}  // namespace

BitmapPattern EmptyPattern(uint64_t clusterCount)
{
    return RepeatedByte(clusterCount, 0x00);
}

BitmapPattern FullPattern(uint64_t clusterCount)
{
    return RepeatedByte(clusterCount, 0xFF);
}

BitmapPattern AlternatingPattern(uint64_t clusterCount)
{
    return RepeatedByte(clusterCount, 0x55);
}

BitmapPattern ClusteredPattern(uint64_t clusterCount)
{
    constexpr double kUsedRun = 24.3;
    constexpr double kFreeRun = 38.0;
    BitmapPattern pattern = EmptyPattern(clusterCount);
    std::mt19937_64 random(39);
    // By hand, since the standard library's distributions differ from one to the next.
    const auto runLength = [&random](double mean) {
        const double uniform = (static_cast<double>(random() >> 11) + 1) / 9007199254740993.0;
        return 1 + static_cast<uint64_t>(std::log(uniform) / std::log(1 - 1 / mean));
    };
    for (uint64_t cluster = runLength(kFreeRun); cluster < clusterCount; cluster += runLength(kFreeRun)) {
        for (uint64_t left = runLength(kUsedRun); left > 0 && cluster < clusterCount; --left, ++cluster) {
            pattern.bytes[cluster / 8] = static_cast<uint8_t>(pattern.bytes[cluster / 8] | 1u << (cluster % 8));
        }
    }
    return pattern;
}

void ScriptBitmap(machine::Volume& volume, std::shared_ptr<const BitmapPattern> pattern)
{
    volume.SetFileSystemName(u"NTFS");
    volume.SetNtfsData([pattern](const machine::ControlRequest&) { return VolumeDataAnswer(pattern->clusterCount); });
    volume.SetBitmapAnswer([pattern](const machine::ControlRequest&) { return WholeBitmapAnswer(*pattern); });
}

}  // namespace bench
