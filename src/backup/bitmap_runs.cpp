#include "backup/bitmap_runs.h"

#include <bit>

#include "core/bytes.h"
#include "core/checked_math.h"

namespace kk {

namespace {

constexpr uint64_t kWordBits = 64;

/// What FindBit is to find: the words are combined with it, so that the wanted bits are the set ones.
constexpr uint64_t kSetBit = 0;
constexpr uint64_t kClearBit = ~uint64_t{0};

/// The first bit from `position` on, below `end`, that is wanted, or `end`. A word at a time, since volumes have long
/// runs.
uint64_t FindBit(const uint8_t* bits, uint64_t position, uint64_t end, uint64_t wantedBit)
{
    uint64_t mask = ~uint64_t{0} << (position % kWordBits);
    for (uint64_t word = position / kWordBits; word * kWordBits < end; ++word) {
        const uint64_t wanted = (LoadUnaligned<uint64_t>(bits + word * sizeof(uint64_t)) ^ wantedBit) & mask;
        if (wanted != 0) {
            return Min(word * kWordBits + static_cast<uint64_t>(std::countr_zero(wanted)), end);
        }
        mask = ~uint64_t{0};
    }
    return end;
}

}  // namespace

void BitmapRuns::Add(const uint8_t* bits, uint64_t first, uint64_t end, uint64_t firstCluster)
{
    for (uint64_t position = first; position < end;) {
        const uint64_t set = FindBit(bits, position, end, kSetBit);
        if (firstCluster + set != runEnd_) {
            Finish();
        }
        if (set == end) {
            return;
        }
        position = FindBit(bits, set, end, kClearBit);
        if (!open_) {
            open_ = true;
            runFirst_ = firstCluster + set;
        }
        runEnd_ = firstCluster + position;
    }
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

}  // namespace kk
