#include <filesystem>

#include "image_partitions_fixture.h"
#include "machine/host_tools.h"

namespace {

/// Images that others made, as QEMU's own tests use them.
class VhdxSampleImagesTest : public ImagePartitionsTest {
protected:
    static constexpr int kCannotBeHad = 77;

    void SetUp() override
    {
        const machine::ToolResult result = machine::RunTool({KK_FETCH_SAMPLE_IMAGES, KK_SAMPLE_IMAGES});
        if (result.exitCode == kCannotBeHad) {
            GTEST_SKIP() << result.text;
        }
        ASSERT_EQ(result.exitCode, 0) << result.text;
    }
    void OpenSample(const std::string& name)
    {
        file = std::filesystem::path(KK_SAMPLE_IMAGES) / name;
        ASSERT_EQ(OpenFile(), 0);
    }
    void ExpectAll(uint64_t start, uint64_t end, uint8_t value)
    {
        const std::vector<uint8_t> expected(kMiB, value);
        for (uint64_t offset = start; offset < end; offset += kMiB) {
            ASSERT_EQ(Read(offset, kMiB), 0) << offset;
            ASSERT_TRUE(bytes == expected) << offset;
        }
    }
};

TEST_F(VhdxSampleImagesTest, ADiskThatHyperVMadeReadsAsItWasWritten)
{
    OpenSample("iotest-dynamic-1G.vhdx");

    EXPECT_EQ(reader->VirtualSize(), kGiB);
    EXPECT_EQ(reader->BlockSize(), 32u << 20);
    EXPECT_EQ(reader->LogicalSectorSize(), 512u);
    ExpectAll(0, 33 * kMiB, 0xA5);
    ExpectAll(33 * kMiB, 66 * kMiB, 0x96);
    ExpectAll(66 * kMiB, kGiB, 0);
    EXPECT_EQ(ReadGpt(), kMalformed);
    EXPECT_EQ(ReadMbr(), kMalformed);
}

TEST_F(VhdxSampleImagesTest, ALogIsNotReplayed)
{
    OpenSample("iotest-dirtylog-10G-4M.vhdx");
    const std::filesystem::path replayed = folder / "replayed.vhdx";
    std::filesystem::copy_file(file, replayed);
    const std::string before = ReadFile(file);

    EXPECT_EQ(reader->VirtualSize(), 10 * kGiB);
    ExpectZeros(17 * kMiB, kMiB);
    ExpectZeros(10 * kGiB - kMiB, kMiB);
    reader.reset();
    EXPECT_TRUE(ReadFile(file) == before);

    Shell("qemu-img check -q -r all -f vhdx " + replayed.string());
    file = replayed;
    ASSERT_EQ(OpenFile(), 0);
    EXPECT_EQ(Read(17 * kMiB, kMiB), 0);
    EXPECT_TRUE(bytes != std::vector<uint8_t>(kMiB)) << "the block that only the log knew of";
}

TEST_F(VhdxSampleImagesTest, AnImageReadsAsOthersReadIt)
{
    OpenSample("iotest-dynamic-1G.vhdx");
    const std::string raw = (folder / "sample.raw").string();
    Shell("qemu-img convert -f vhdx -O raw " + file.string() + " " + raw);
    machine::FileStorage expected(raw, machine::FileStorage::Mode::ReadOnly);

    ASSERT_EQ(reader->VirtualSize(), expected.Size());
    for (const machine::Stretch& stretch : expected.DataIn(0, expected.Size())) {
        std::vector<uint8_t> theirs(stretch.length);
        ASSERT_TRUE(expected.Read(stretch.offset, theirs));
        ExpectBytes(stretch.offset, theirs);
    }
    ExpectZeros(expected.Size(), kMiB);
}

}  // namespace
