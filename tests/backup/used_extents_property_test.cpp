#include <random>

#include "backup/bitmap_runs.h"
#include "bitmap_volume.h"

// Random bitmaps in random pieces, against a reference that looks at one bit after the other.

namespace {

class BitmapMaker {
public:
    explicit BitmapMaker(uint64_t seed) : random_(seed) {}

    uint64_t Below(uint64_t limit) { return random_() % limit; }

    /// Runs of random lengths: long ones, short ones, and clusters that are all alike.
    Bits Make(uint64_t most)
    {
        Bits bits(1 + Below(most), false);
        const uint64_t longest = 1 + Below(Below(4) == 0 ? 2 : 300);
        bool used = Below(2) != 0;
        for (size_t i = 0; i < bits.size();) {
            for (uint64_t run = 1 + Below(longest); run > 0 && i < bits.size(); --run) {
                bits[i++] = used;
            }
            used = Below(16) == 0 ? used : !used;
        }
        return bits;
    }

private:
    std::mt19937_64 random_;
};

class UsedExtentsPropertyTest : public UsedExtentsTest {};

TEST_F(UsedExtentsPropertyTest, RandomBitmapsInRandomPiecesGiveTheRunsOfTheirBits)
{
    constexpr uint64_t kUnits[] = {1, 2, 8, 16, 64, 32768};
    for (uint64_t seed = 1; seed <= 300; ++seed) {
        BitmapMaker maker(seed);
        const Bits bits = maker.Make(seed % 3 == 0 ? 20'000 : 600);
        const uint64_t unit = kUnits[maker.Below(std::size(kUnits))];
        const uint64_t most = 1 + maker.Below(200);
        // A piece reaches behind the rounding, or it would make no progress.
        const AnswerShape shape = {.roundingUnit = unit,
                                   .bytes = [&] { return unit / 8 + 1 + maker.Below(most); },
                                   .dirtyEnd = maker.Below(2) != 0};
        const auto clusterSize = static_cast<uint32_t>(512u << maker.Below(12));
        kk::Array<kk::VolumeExtent> found;
        UseBits(bits, shape);

        ASSERT_EQ(kk::GetVolumeUsedExtents(ScriptedDevice::kName, clusterSize, found), 0) << seed;
        ASSERT_EQ(Extents(found.begin(), found.end()), NaiveExtents(bits, clusterSize)) << seed;
        machine.journal.Clear();
    }
}

TEST_F(UsedExtentsPropertyTest, RunsAreJoinedAcrossPiecesThatBeginAndEndAnywhere)
{
    for (uint64_t seed = 1; seed <= 500; ++seed) {
        BitmapMaker maker(1000 + seed);
        const Bits bits = maker.Make(2000);
        kk::Array<kk::VolumeExtent> found;
        kk::BitmapRuns runs(4096, found);
        for (uint64_t done = 0; done < bits.size();) {
            const uint64_t first = maker.Below(std::min<uint64_t>(done + 1, 130));
            const uint64_t count = maker.Below(std::min<uint64_t>(bits.size() - done, 200) + 1);
            std::vector<uint8_t> piece((first + count + 63) / 64 * 8, static_cast<uint8_t>(maker.Below(256)));
            for (uint64_t i = 0; i < count; ++i) {
                const auto bit = static_cast<uint8_t>(1u << ((first + i) % 8));
                uint8_t& byte = piece[(first + i) / 8];
                byte = static_cast<uint8_t>(bits[done + i] ? byte | bit : byte & ~bit);
            }
            runs.Add(piece.data(), first, first + count, done - first);
            done += count;
        }
        runs.Finish();
        runs.Finish();

        ASSERT_EQ(Extents(found.begin(), found.end()), NaiveExtents(bits, 4096)) << seed;
    }
}

TEST_F(UsedExtentsPropertyTest, ARunEndsWhereAPieceDoesNotFollowOn)
{
    const std::vector<uint8_t> full(8, 0xFF);
    kk::Array<kk::VolumeExtent> found;
    kk::BitmapRuns runs(1, found);

    runs.Add(full.data(), 0, 8, 0);
    runs.Add(full.data(), 0, 8, 9);
    runs.Finish();

    EXPECT_EQ(Extents(found.begin(), found.end()), (Extents{{0, 8}, {9, 8}}));
}

TEST_F(UsedExtentsPropertyTest, RunsGrowFromOneBitToTheNextAtEveryPlaceOfAWord)
{
    for (uint64_t first = 0; first < 130; ++first) {
        for (uint64_t end = first; end <= 192; ++end) {
            std::vector<uint8_t> bits(24, 0);
            for (uint64_t i = first; i < end; ++i) {
                bits[i / 8] = static_cast<uint8_t>(bits[i / 8] | 1u << (i % 8));
            }
            kk::Array<kk::VolumeExtent> found;
            kk::BitmapRuns runs(1, found);
            runs.Add(bits.data(), 0, 192, 0);
            runs.Finish();

            ASSERT_EQ(Extents(found.begin(), found.end()), first == end ? Extents{} : (Extents{{first, end - first}}));
            machine.journal.Clear();
        }
    }
}

}  // namespace
