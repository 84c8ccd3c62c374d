#include "support/vhdx_builder.h"

#include <gtest/gtest.h>

#include "support/pattern.h"
#include "support/shell.h"
#include "support/vhdx_judges.h"

namespace {

constexpr uint64_t kMiB = 1 << 20;
constexpr uint64_t kGiB = 1024 * kMiB;
constexpr uint64_t kTiB = 1024 * kGiB;

class VhdxBuilderTest : public testing::Test {
protected:
    void ExpectAccepted(const VhdxBuilder& builder, uint32_t sectorSize = 512)
    {
        builder.Save(file_);
        EXPECT_EQ(ComplaintAboutVhdx(file_, sectorSize), "");
    }
    void ExpectOthersRead(uint64_t offset, const std::vector<uint8_t>& expected)
    {
        EXPECT_EQ(VhdxBytesForOthers(file_, offset, expected.size()), expected) << "at " << offset;
    }
    std::string Info() { return Shell("vhdiinfo " + file_); }

    TemporaryFolder folder_;
    std::string file_ = (folder_ / "image.vhdx").string();
};

TEST_F(VhdxBuilderTest, OthersAcceptAnEmptyDisk)
{
    ExpectAccepted(VhdxBuilder(64 * kMiB));

    EXPECT_NE(Info().find("(67108864 bytes)"), std::string::npos) << Info();
    EXPECT_NE(Info().find("Disk type\t\t: Dynamic"), std::string::npos) << Info();
    ExpectOthersRead(0, std::vector<uint8_t>(kMiB));
}

TEST_F(VhdxBuilderTest, OthersReadDataWhereItWasPutWhateverTheOrder)
{
    ExpectAccepted(VhdxBuilder(64 * kMiB)
                       .Data(40 * kMiB, Pattern(5000, 1))
                       .Data(2 * kMiB - 700, Pattern(1500, 2))
                       .Data(64 * kMiB - 512, Pattern(512, 3)));

    ExpectOthersRead(40 * kMiB, Pattern(5000, 1));
    ExpectOthersRead(2 * kMiB - 700, Pattern(1500, 2));
    ExpectOthersRead(64 * kMiB - 512, Pattern(512, 3));
    ExpectOthersRead(10 * kMiB, std::vector<uint8_t>(4096));
    Shell("qemu-io -r -f vhdx -c 'read -P " + std::to_string(Pattern(1, 1)[0]) + " 41943040 1' " + file_);
}

TEST_F(VhdxBuilderTest, OthersAcceptEveryBlockSize)
{
    for (const uint32_t mebibytes : {1u, 2u, 8u, 32u, 256u}) {
        SCOPED_TRACE(mebibytes);
        ExpectAccepted(VhdxBuilder(600 * kMiB)
                           .BlockSize(static_cast<uint32_t>(mebibytes * kMiB))
                           .Data(511 * kMiB, Pattern(2 * kMiB, 4)));

        ExpectOthersRead(511 * kMiB, Pattern(2 * kMiB, 4));
    }
}

TEST_F(VhdxBuilderTest, OthersFindBlocksBeyondTheFirstChunk)
{
    ExpectAccepted(
        VhdxBuilder(10 * kGiB).BitmapEntries(0).Data(4 * kGiB - 512, Pattern(1024, 5)).Data(8 * kGiB, Pattern(512, 6)));

    ExpectOthersRead(4 * kGiB - 512, Pattern(1024, 5));
    ExpectOthersRead(8 * kGiB, Pattern(512, 6));
}

TEST_F(VhdxBuilderTest, OthersFindBlocksBeyondTheFirstChunkOfLargeSectors)
{
    ExpectAccepted(VhdxBuilder(40 * kGiB).SectorSize(4096).Data(32 * kGiB, Pattern(8192, 7)).Data(0, Pattern(4096, 8)),
                   4096);

    ExpectOthersRead(32 * kGiB, Pattern(8192, 7));
    ExpectOthersRead(0, Pattern(4096, 8));
}

TEST_F(VhdxBuilderTest, OthersAcceptADiskWithoutHoles)
{
    ExpectAccepted(VhdxBuilder(16 * kMiB).EveryBlockPresent().Data(6 * kMiB, Pattern(100, 9)));

    ExpectOthersRead(6 * kMiB, Pattern(100, 9));
    EXPECT_GT(std::filesystem::file_size(file_), 16 * kMiB);
}

TEST_F(VhdxBuilderTest, ADiskOfManyTerabytesTakesNoRoom)
{
    ExpectAccepted(VhdxBuilder(60 * kTiB).BlockSize(32 << 20).Data(59 * kTiB, Pattern(512, 10)));

    ExpectOthersRead(59 * kTiB, Pattern(512, 10));
    EXPECT_LT(std::stoull(Shell("du -k " + file_)), 1024u);
}

TEST_F(VhdxBuilderTest, OthersSeeStatesAndEntriesThatWereGiven)
{
    VhdxBuilder builder(16 * kMiB);
    builder.Data(0, Pattern(512, 11)).Data(2 * kMiB, Pattern(512, 12)).Data(4 * kMiB, Pattern(512, 13));
    ExpectAccepted(builder.State(0, 2).Entry(8 / 2, builder.PlaceOf(2) | vhdx::kFullyPresent).State(2, 0));

    ExpectOthersRead(0, std::vector<uint8_t>(512));
    ExpectOthersRead(2 * kMiB, Pattern(512, 12));
    ExpectOthersRead(8 * kMiB, Pattern(512, 13));
}

TEST_F(VhdxBuilderTest, OthersRefuseDamage)
{
    ExpectAccepted(VhdxBuilder(16 * kMiB));

    VhdxBuilder(16 * kMiB).FileBytes(vhdx::kRegionTableOffsets[0] + 4, {1, 2, 3, 4}).Save(file_);
    EXPECT_NE(ComplaintAboutVhdx(file_), "");
    VhdxBuilder(16 * kMiB).WithoutItem(vhdx::kVirtualDiskSize).Save(file_);
    EXPECT_NE(ComplaintAboutVhdx(file_), "");
    VhdxBuilder(16 * kMiB).Regions({}).Save(file_);
    EXPECT_NE(ComplaintAboutVhdx(file_), "");
}

}  // namespace
