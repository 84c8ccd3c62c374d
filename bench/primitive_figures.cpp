#include "primitive_figures.h"

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "heap_probe.h"
#include "library_machine.h"
#include "machine/memory_virtual_disks.h"
#include "pattern_volume.h"
#include "read_block.h"

namespace bench {

namespace {

constexpr size_t kWarmUps = 3;

/// The list of extents passes 8 MiB with the run after this many.
constexpr uint64_t kExtentsInBlock = HeapProbe::kBlockBytes / 16;

double FillSeconds(const HeapProbe& probe, const std::vector<machine::CallRecord>& calls)
{
    const auto next = std::find_if(calls.begin(), calls.end(), [&](const machine::CallRecord& call) {
        return call.enteredNs >= probe.FillStartNs();
    });
    if (next == calls.end()) {
        throw std::runtime_error("no block was filled");
    }
    return static_cast<double>(next->enteredNs - probe.FillStartNs()) * 1e-9;
}

}  // namespace

std::vector<Figure> MeasurePrimitives(const Settings& settings)
{
    constexpr Gate kGate = {Gate::Kind::SpeedRatioAtLeast, 0.90};
    Figure fill = {.name = "fill", .title = "Filling 8 MiB with zeros", .peer = "libc memset", .gate = kGate};
    Figure copy = {.name = "copy", .title = "Copying 8 MiB", .peer = "libc memcpy", .gate = kGate};
    fill.remark = "the transfer buffer";
    copy.remark = "the growing list of extents";
    fill.work.bytes = HeapProbe::kBlockBytes;
    copy.work.bytes = HeapProbe::kBlockBytes;

    HeapProbe probe;
    ReadBlock block(HeapProbe::kBlockBytes);
    const auto pattern = std::make_shared<const BitmapPattern>(AlternatingPattern(2 * kExtentsInBlock + 1000));
    PatternVolume volume(settings, pattern, probe.Resolver());
    for (size_t i = 0; i < kWarmUps + settings.shortPairs; ++i) {
        probe.Begin(i % 2 == 1);
        volume.Run();
        if (i >= kWarmUps) {
            const double readSeconds = block.SecondsToRead();
            fill.pairs.push_back({{FillSeconds(probe, volume.Calls())}, {probe.PeerFillSeconds()}, readSeconds});
            copy.pairs.push_back({probe.Copy().ours, probe.Copy().peer, readSeconds});
        }
    }
    return {fill, copy};
}

}  // namespace bench
