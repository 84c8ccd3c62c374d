#include "bitmap_figures.h"

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "backup/volume_bitmap.h"
#include "naive_scan.h"
#include "pattern_volume.h"
#include "read_block.h"

namespace bench {

using machine::CallKind;
using machine::CallRecord;

namespace {

constexpr size_t kWarmUps = 3;

/// What the journal tells of the time after a bitmap request.
struct ScanTimes {
    double library = 0;  // until the next call that is not one of the heap, less the heap's time
    double heap = 0;
    uint64_t heapCalls = 0;
};

bool IsHeapCall(const CallRecord& call)
{
    return call.kind == CallKind::Allocate || call.kind == CallKind::Free;
}

ScanTimes TimesAfterRequest(const std::vector<CallRecord>& calls)
{
    const auto request = std::find_if(calls.begin(), calls.end(), [](const CallRecord& call) {
        return call.kind == CallKind::FsControl && call.code == kk::kFsctlGetVolumeBitmap;
    });
    const auto next = request == calls.end() ? request : std::find_if_not(request + 1, calls.end(), IsHeapCall);
    if (next == calls.end() || next->code == kk::kFsctlGetVolumeBitmap) {
        throw std::runtime_error("the bitmap was not fetched by exactly one request");
    }
    ScanTimes times;
    for (auto call = request + 1; call != next; ++call) {
        times.heap += static_cast<double>(call->leftNs - call->enteredNs) * 1e-9;
        ++times.heapCalls;
    }
    times.library = static_cast<double>(next->enteredNs - request->leftNs) * 1e-9 - times.heap;
    return times;
}

struct Case {
    const char* name;
    const char* title;
    BitmapPattern (*make)(uint64_t clusterCount);
    Gate gate;
};

Figure MeasureScan(const Settings& settings, const Case& one)
{
    Figure figure = {.name = one.name, .title = one.title, .peer = "loop over bits", .gate = one.gate};
    const auto pattern = std::make_shared<const BitmapPattern>(one.make(kFullRequestClusters));
    PatternVolume volume(settings, pattern);
    std::vector<uint8_t> answer;
    std::vector<double> heapSeconds;
    uint64_t heapCalls = 0;
    size_t runs = 0;
    const auto ours = [&] {
        volume.Run();
        const ScanTimes times = TimesAfterRequest(volume.Calls());
        heapSeconds.push_back(times.heap);
        heapCalls = times.heapCalls;
        return Cost{times.library};
    };
    const auto peer = [&] {
        answer = pattern->bytes;  // as warm as the library finds it: just written
        const double started = NowSeconds();
        const std::vector<kk::VolumeExtent> extents = ScanBitByBit(answer, pattern->clusterCount, kClusterBytes);
        const double seconds = NowSeconds() - started;
        runs = extents.size();
        return Cost{seconds};
    };
    ReadBlock block(pattern->bytes.size());
    figure.pairs = MeasurePairs(kWarmUps, settings.shortPairs, ours, peer, [&] { return block.SecondsToRead(); });
    figure.work = {.bytes = pattern->bytes.size(), .heapBytes = volume.PeakHeapBytes()};
    const auto microseconds = static_cast<uint64_t>(Median(heapSeconds) * 1e6);
    figure.remark = std::to_string(runs) + " runs; heap: " + std::to_string(heapCalls) + " calls, " +
                    std::to_string(microseconds) + " us not counted";
    return figure;
}

}  // namespace

std::vector<Figure> MeasureBitmapScans(const Settings& settings)
{
    const Case cases[] = {
        {"bitmap-empty", "One bitmap answer, empty", EmptyPattern, {.mostSeconds = 0.5e-3}},
        {"bitmap-full", "One bitmap answer, full", FullPattern, {.mostSeconds = 0.5e-3}},
        {"bitmap-clustered", "One bitmap answer, clustered", ClusteredPattern, {.mostSeconds = 2.5e-3}},
        {"bitmap-alternating", "One bitmap answer, alternating", AlternatingPattern, {}},
    };
    std::vector<Figure> figures;
    for (const Case& one : cases) {
        figures.push_back(MeasureScan(settings, one));
    }
    return figures;
}

}  // namespace bench
