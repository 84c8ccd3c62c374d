#include "bitmap_volume.h"

namespace {

Bits Clusters(uint64_t count, bool used)
{
    return Bits(count, used);
}

TEST_F(UsedExtentsTest, RunsOfClustersAreExtentsInBytes)
{
    Bits bits = Clusters(100, false);
    for (const size_t used : {0u, 1u, 2u, 10u, 63u, 64u, 65u, 98u}) {
        bits[used] = true;
    }
    UseBits(bits);

    EXPECT_EQ(Get(4096), 0);
    EXPECT_EQ(Found(), (Extents{{0, 3 * 4096}, {10 * 4096, 4096}, {63 * 4096, 3 * 4096}, {98 * 4096, 4096}}));
}

TEST_F(UsedExtentsTest, AVolumeWithoutUsedClustersHasNoExtents)
{
    UseBits(Clusters(1000, false));

    EXPECT_EQ(Get(), 0);
    EXPECT_TRUE(Found().empty());
}

TEST_F(UsedExtentsTest, AVolumeWithoutClustersHasNoExtents)
{
    UseBits({});

    EXPECT_EQ(Get(), 0);
    EXPECT_TRUE(Found().empty());
    EXPECT_EQ(Asked(), std::vector<int64_t>{0});
}

TEST_F(UsedExtentsTest, AFullVolumeIsOneExtent)
{
    for (const uint64_t count : {1u, 7u, 8u, 9u, 63u, 64u, 65u, 1000u, 4096u}) {
        kk::Array<kk::VolumeExtent> found;
        UseBits(Clusters(count, true));

        EXPECT_EQ(kk::GetVolumeUsedExtents(ScriptedDevice::kName, 512, found), 0);
        ASSERT_EQ(found.Count(), 1u) << count;
        EXPECT_EQ(found[0], (kk::VolumeExtent{0, count * 512}));
    }
}

TEST_F(UsedExtentsTest, EveryOtherClusterIsAnExtentOfItsOwn)
{
    for (const bool first : {true, false}) {
        Bits bits = Clusters(1001, false);
        for (size_t i = 0; i < bits.size(); ++i) {
            bits[i] = (i % 2 == 0) == first;
        }
        kk::Array<kk::VolumeExtent> found;
        UseBits(bits);

        EXPECT_EQ(kk::GetVolumeUsedExtents(ScriptedDevice::kName, 4096, found), 0);
        EXPECT_EQ(found.Count(), first ? 501u : 500u);
        EXPECT_EQ(Extents(found.begin(), found.end()), NaiveExtents(bits, 4096));
    }
}

TEST_F(UsedExtentsTest, ARunThatEndsWithTheVolumeIsAnExtent)
{
    Bits bits = Clusters(77, false);
    bits[75] = bits[76] = true;
    UseBits(bits);

    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(Found(), (Extents{{75 * 4096, 2 * 4096}}));
}

TEST_F(UsedExtentsTest, OffsetsAndLengthsHave64Bits)
{
    Bits bits = Clusters(400'000, true);
    bits[0] = false;
    bits[300'000] = false;
    UseBits(bits);

    EXPECT_EQ(Get(0x10000), 0);
    EXPECT_EQ(Found(), (Extents{{0x10000, 299'999ull * 0x10000}, {300'001ull * 0x10000, 99'999ull * 0x10000}}));
}

TEST_F(UsedExtentsTest, TheLargestClustersAreMultipliedIn64Bits)
{
    UseBits({false, true, true});

    EXPECT_EQ(Get(0xFFFFFFFF), 0);
    EXPECT_EQ(Found(), (Extents{{0xFFFFFFFFull, 0x1'FFFF'FFFEull}}));
}

TEST_F(UsedExtentsTest, TheVolumeIsOpenedForReadingAndClosed)
{
    UseBits(Clusters(8, true));

    EXPECT_EQ(Get(), 0);
    const auto opens = machine.journal.FindAll({.kind = machine::CallKind::CreateFile});
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0].object, "\\Device\\Scripted");
    EXPECT_EQ(opens[0].access, 0x120089u);
    EXPECT_EQ(opens[0].share, 3u);
    EXPECT_EQ(machine.handles.OpenCount(), 0u);
    EXPECT_EQ(machine.heap.LiveBlocks(), 1u);  // the list
}

TEST_F(UsedExtentsTest, OneBufferServesAllRequests)
{
    UseBits(Clusters(100, true), {.bytes = [] { return 1u; }});

    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(Asked().size(), 13u);
    const std::vector<uint64_t>& sizes = machine.heap.Sizes();
    EXPECT_EQ(std::count(sizes.begin(), sizes.end(), uint64_t{kAnswerBytes}), 1);
}

TEST_F(UsedExtentsTest, TheNextRequestBeginsBehindTheBitsThatCame)
{
    UseBits(Clusters(100, true), {.bytes = [] { return 3u; }});

    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(Asked(), (std::vector<int64_t>{0, 24, 48, 72, 96}));
    EXPECT_EQ(Found(), (Extents{{0, 100 * 4096}}));
}

TEST_F(UsedExtentsTest, AVolumeOfOneFullAnswerTakesOneRequest)
{
    UseBits(Clusters(kAnswerBits, true));

    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(Asked(), std::vector<int64_t>{0});
    EXPECT_EQ(Found(), (Extents{{0, kAnswerBits * 4096}}));
}

TEST_F(UsedExtentsTest, LargeVolumesTakeSeveralRequests)
{
    Bits bits = Clusters(3 * kAnswerBits + 5, false);
    for (const uint64_t boundary : {kAnswerBits, 2 * kAnswerBits, 3 * kAnswerBits}) {
        bits[boundary - 1] = bits[boundary] = true;
    }
    bits.back() = true;
    UseBits(bits);

    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(Asked(), (std::vector<int64_t>{0, kAnswerBits, 2 * kAnswerBits, 3 * kAnswerBits}));
    EXPECT_EQ(Found(), NaiveExtents(bits, 4096));
    EXPECT_EQ(Found().size(), 4u);
}

TEST_F(UsedExtentsTest, AnswersThatBeginEarlierAddNothingTwice)
{
    Bits bits = Clusters(kAnswerBits + 40'000, false);
    std::fill(bits.begin() + 8'380'000, bits.begin() + 8'400'000, true);
    bits[5] = true;
    UseBits(bits, {.roundingUnit = 32768});

    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(Asked(), (std::vector<int64_t>{0, kAnswerBits}));
    EXPECT_EQ(Found(), (Extents{{5 * 4096, 4096}, {8'380'000ull * 4096, 20'000ull * 4096}}));
}

TEST_F(UsedExtentsTest, ClustersThatAreToldAgainKeepTheirFirstState)
{
    // Between two requests a live volume changes: what was told first counts.
    Bits bits = Clusters(64, false);
    int request = 0;
    device->control = [&](const machine::ControlRequest& asked) {
        const AnswerShape shape = {.roundingUnit = 32, .bytes = [] { return 6u; }};
        machine::ControlAnswer answer = AnswerBitmap(bits, asked, shape);
        bits.assign(64, ++request == 1);
        return answer;
    };

    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(Asked(), (std::vector<int64_t>{0, 48}));
    EXPECT_EQ(Found(), (Extents{{48 * 4096, 16 * 4096}}));
}

}  // namespace
