// Answers to the question for a volume's extents that must not be believed.

#include <string>

#include "disk/find_volume.h"

namespace kk {
namespace {

/// Replaces the extents that the volumes tell.
class HostileExtentsTest : public FindVolumeTest {
protected:
    HostileExtentsTest() { AddDiskWithThreeVolumes(); }

    /// An answer with these extents on disk 5, and a count of its own.
    static std::vector<uint8_t> Extents(uint32_t count, const std::vector<uint64_t>& starts)
    {
        std::vector<uint8_t> bytes = machine::BytesOf(uint64_t{count});
        for (const uint64_t start : starts) {
            DiskExtent extent = {};
            extent.diskNumber = 5;
            extent.startingOffset = static_cast<int64_t>(start);
            extent.extentLength = 4096;
            const std::vector<uint8_t> more = machine::BytesOf(extent);
            bytes.insert(bytes.end(), more.begin(), more.end());
        }
        return bytes;
    }

    void Answer(const std::string& volume, machine::ControlAnswer answer)
    {
        machine.OnControl(
            {.object = volume, .code = kIoctlVolumeGetVolumeDiskExtents},
            [=](const machine::CallRecord&, const machine::ControlRequest&) { return std::optional(answer); });
    }
};

TEST_F(HostileExtentsTest, ExtentsBeyondTheAnswerAreNotBelieved)
{
    Answer("Volume1", {.output = Extents(0xFFFFFFFF, {4096, 8192})});

    EXPECT_TRUE(Find(5, 8192));
    EXPECT_FALSE(Find(0, 0));
}

TEST_F(HostileExtentsTest, ExtentsBeyondTheCountAreNotLookedAt)
{
    Answer("Volume1", {.output = Extents(1, {4096, 8192})});

    EXPECT_TRUE(Find(5, 4096));
    EXPECT_FALSE(Find(5, 8192));
}

TEST_F(HostileExtentsTest, AnExtentThatWasReturnedInPartIsNotLookedAt)
{
    std::vector<uint8_t> bytes = Extents(2, {4096, 8192});
    bytes.pop_back();
    Answer("Volume1", {.output = bytes});

    EXPECT_TRUE(Find(5, 4096));
    EXPECT_FALSE(Find(5, 8192));
}

TEST_F(HostileExtentsTest, ACountWithoutExtentsMatchesNothing)
{
    for (const uint64_t information : {0u, 7u, 8u, 31u}) {
        Answer("Volume", {.output = Extents(1, {}), .information = information});
        EXPECT_FALSE(Find(0, 0)) << information;

        Answer("Volume", {.output = Extents(1, {4096}), .information = information});
        EXPECT_FALSE(Find(5, 4096)) << information;
    }
}

TEST_F(HostileExtentsTest, AnExtentAtTheDisksStartMatches)
{
    Answer("Volume2", {.output = Extents(1, {0})});

    EXPECT_TRUE(Find(5, 0));
    EXPECT_EQ(Path(), u"\\Device\\HarddiskVolume2");
}

TEST_F(HostileExtentsTest, AnEmptyAnswerMatchesNothing)
{
    Answer("Volume", {});

    EXPECT_FALSE(Find(0, 0));
    ExpectUntouched();
}

TEST_F(HostileExtentsTest, MoreExtentsThanTheBufferHoldsAreNotBelieved)
{
    std::vector<uint64_t> starts(21, 4096);
    starts.push_back(8192);
    for (const uint64_t information : {uint64_t{512}, uint64_t{536}, uint64_t{0xFFFFFFFF}}) {
        Answer("Volume", {.output = Extents(22, starts), .information = information});

        EXPECT_TRUE(Find(5, 4096));
        EXPECT_FALSE(Find(5, 8192));
    }
}

TEST_F(HostileExtentsTest, AWarningIsSkippedHoweverWellItsAnswerFits)
{
    Answer("Volume1", {.status = machine::kBufferOverflow, .output = Extents(1, {4096})});

    EXPECT_FALSE(Find(5, 4096));
}

TEST_F(HostileExtentsTest, TheAnswerOfTheVolumeBeforeIsForgotten)
{
    Answer("Volume1", {.status = machine::kBufferOverflow, .output = Extents(1, {4096})});
    Answer("Volume2", {.output = {1, 0, 0, 0, 0, 0, 0, 0}, .information = 512});

    EXPECT_FALSE(Find(5, 4096));
}

}  // namespace
}  // namespace kk
