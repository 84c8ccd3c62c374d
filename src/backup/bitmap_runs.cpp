#include "backup/bitmap_runs.h"

#include <bit>

#include "core/bytes.h"

namespace kk {

namespace {

constexpr uint64_t kWordBits = 64;

/// The lowest `count` bits, fewer than a word's.
constexpr uint64_t LowBits(uint64_t count)
{
    return (uint64_t{1} << count) - 1;
}

}  // namespace

void BitmapRuns::Add(const uint8_t* bits, uint64_t first, uint64_t end, uint64_t firstCluster)
{
    if (first >= end) {
        return;
    }
    if (open_ && firstCluster + first != runEnd_) {
        Finish();
    }
    // A word at a time: a run begins or ends wherever a bit differs from the one before it.
    for (uint64_t start = first - first % kWordBits; start < end; start += kWordBits) {
        uint64_t word = LoadUnaligned<uint64_t>(bits + start / 8);
        if (start < first) {
            const uint64_t before = LowBits(first - start);
            word = open_ ? word | before : word & ~before;
        }
        uint64_t edges = word ^ (word << 1 | (open_ ? 1 : 0));
        if (end - start < kWordBits) {
            edges &= LowBits(end - start);
        }
        for (; edges != 0; edges &= edges - 1) {
            PassEdge(firstCluster + start + static_cast<uint64_t>(std::countr_zero(edges)));
        }
    }
    runEnd_ = firstCluster + end;
}

void BitmapRuns::Finish()
{
    if (!open_) {
        return;
    }
    open_ = false;
    // A run for which there is no memory is left out, on purpose: a shorter list is taken for better than none.
    (void)extents_.Append({runFirst_ * clusterSize_, (runEnd_ - runFirst_) * clusterSize_});
}

void BitmapRuns::PassEdge(uint64_t cluster)
{
    if (open_) {
        runEnd_ = cluster;
        Finish();
        return;
    }
    open_ = true;
    runFirst_ = cluster;
}

}  // namespace kk
