#include "machine/ntfs_reader.h"

#include <fstream>
#include <gmock/gmock.h>
#include <random>
#include <regex>

#include "tests/machine/native_calls.h"

namespace machine {
namespace {

/// A volume made by the host's own tools, with files in it.
class ToolMadeVolume final : public VolumeView {
public:
    ToolMadeVolume(uint64_t bytes, const std::vector<std::string>& options, int fileCount = 0)
        : file_(bytes), content_(300 * kKiB)
    {
        std::vector<std::string> command = {"mkntfs", "-Q", "-F", "-p", "2048", "-H", "255", "-S", "63"};
        command.insert(command.end(), options.begin(), options.end());
        command.push_back(file_.Path());
        RunToolOrThrow(command);
        for (int i = 0; i < fileCount; ++i) {
            RunToolOrThrow({"ntfscp", "-q", file_.Path(), content_.Path(), "file" + std::to_string(i)});
        }
        storage_ = std::make_unique<FileStorage>(file_.Path());
    }

    uint64_t Length() const override { return storage_->Size(); }
    uint32_t SectorSize() const override { return 512; }
    bool Read(uint64_t offset, std::span<uint8_t> into) override { return storage_->Read(offset, into); }
    void Write(uint64_t offset, std::span<const uint8_t> from) { storage_->Write(offset, from); }

    const std::string& Path() const { return file_.Path(); }

private:
    TemporaryFile file_;
    TemporaryFile content_;
    std::unique_ptr<FileStorage> storage_;
};

std::vector<uint8_t> BitmapAsNtfscatSeesIt(const std::string& path)
{
    TemporaryFile output;
    RunToolOrThrow({"sh", "-c", "ntfscat -i 6 '" + path + "' > '" + output.Path() + "' 2>/dev/null"});
    std::ifstream stream(output.Path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

int64_t NumberAfter(const std::string& text, const std::string& label)
{
    std::smatch match;
    const std::regex pattern(label + R"(\s*:?\s*(\d+))");
    return std::regex_search(text, match, pattern) ? std::stoll(match[1]) : -1;
}

class NtfsReaderTest : public ::testing::TestWithParam<std::tuple<uint64_t, std::vector<std::string>>> {};

TEST_P(NtfsReaderTest, AgreesWithNtfscatAndNtfsinfo)
{
    ToolMadeVolume volume(std::get<0>(GetParam()), std::get<1>(GetParam()), 3);
    const std::vector<uint8_t> expected = BitmapAsNtfscatSeesIt(volume.Path());
    const std::string words = RunToolOrThrow({"ntfsinfo", "-m", volume.Path()});

    NtfsReader reader(volume);
    ASSERT_TRUE(reader.Open());
    std::vector<uint8_t> bitmap((reader.Geometry().totalClusters + 7) / 8);
    ASSERT_TRUE(reader.ReadBitmap(0, bitmap));
    const std::optional<kk::NtfsVolumeData> data = reader.ReadVolumeData();

    ASSERT_GE(expected.size(), bitmap.size());
    EXPECT_TRUE(std::equal(bitmap.begin(), bitmap.end(), expected.begin()));
    ASSERT_TRUE(data);
    EXPECT_EQ(data->bytesPerSector, NumberAfter(words, "Sector Size"));
    EXPECT_EQ(data->bytesPerCluster, NumberAfter(words, "Cluster Size"));
    EXPECT_EQ(data->totalClusters, NumberAfter(words, "Volume Size in Clusters"));
    EXPECT_EQ(data->freeClusters, NumberAfter(words, "Free Clusters"));
    EXPECT_EQ(data->mftStartLcn, NumberAfter(words, "LCN of Data Attribute for FILE_MFT"));
    EXPECT_EQ(data->mft2StartLcn, NumberAfter(words, "LCN of Data Attribute for File_MFTMirr"));
    EXPECT_EQ(data->bytesPerFileRecordSegment, NumberAfter(words, "MFT Record Size"));
    EXPECT_EQ(data->numberSectors, static_cast<int64_t>(volume.Length() / data->bytesPerSector) - 1);
    uint64_t usedEnd = reader.Geometry().totalClusters;
    while (usedEnd != 0 && (expected[(usedEnd - 1) / 8] >> ((usedEnd - 1) % 8) & 1) == 0) {
        --usedEnd;
    }
    EXPECT_EQ(reader.FindUsedEnd(), usedEnd);
}

INSTANTIATE_TEST_SUITE_P(Volumes, NtfsReaderTest,
                         ::testing::Values(std::tuple(16 * kMiB, std::vector<std::string>{}),
                                           std::tuple(64 * kMiB + 512, std::vector<std::string>{"-c", "512"}),
                                           std::tuple(64 * kMiB, std::vector<std::string>{"-s", "4096"}),
                                           std::tuple(256 * kMiB, std::vector<std::string>{"-c", "65536"}),
                                           std::tuple(5000 * kMiB, std::vector<std::string>{"-c", "4096"}),
                                           std::tuple(10000 * kMiB, std::vector<std::string>{"-c", "512"})));

TEST(NtfsReaderHostilityTest, ScribbledVolumesNeverLeadOutOfBounds)
{
    ToolMadeVolume volume(16 * kMiB, {});
    std::vector<uint8_t> boot(512);
    std::vector<uint8_t> records(8 * 1024);
    volume.Read(0, boot);
    const uint64_t mft = NtfsReader::ReadGeometry(volume)->mftStartLcn * 4096;
    volume.Read(mft, records);
    std::mt19937 random(7);  // NOLINT: the same scribbles each time

    for (int round = 0; round < 3000; ++round) {
        std::vector<uint8_t> badBoot = boot;
        std::vector<uint8_t> badRecords = records;
        badBoot[11 + random() % 70] = static_cast<uint8_t>(random());
        for (int i = 0; i < 4; ++i) {
            badRecords[6 * 1024 + random() % 512] = static_cast<uint8_t>(random());
        }
        volume.Write(0, round % 2 == 0 ? badBoot : boot);
        volume.Write(mft, badRecords);
        NtfsReader reader(volume);
        if (reader.Open()) {
            std::vector<uint8_t> bytes((reader.Geometry().totalClusters + 7) / 8);
            (void)reader.ReadBitmap(0, bytes);
            (void)reader.ReadVolumeData();
        }
    }
}

TEST(NtfsReaderHostilityTest, OtherFileSystemsAreNoNtfs)
{
    MemoryStorage storage(64 * kMiB);
    FormatRegion(storage, 512, 0, 64 * kMiB, FileSystem::Fat32, {});
    TemporaryFile file;
    ExportHostFile(storage, 0, 64 * kMiB, file.Path());
    class View final : public VolumeView {
    public:
        explicit View(Storage& bytes) : bytes_(bytes) {}
        uint64_t Length() const override { return bytes_.Size(); }
        uint32_t SectorSize() const override { return 512; }
        bool Read(uint64_t offset, std::span<uint8_t> into) override { return bytes_.Read(offset, into); }

    private:
        Storage& bytes_;
    } view(storage);

    EXPECT_EQ(RecogniseFileSystem(view), FileSystem::Fat32);
    EXPECT_FALSE(NtfsReader(view).Open());
}

}  // namespace
}  // namespace machine
