#include <fstream>
#include <random>

#include "bitmap_volume.h"
#include "support/shell.h"

// Real NTFS volumes, whose bitmap another program reads for comparison.

namespace {

class UsedExtentsNtfsTest : public MachineTest {
protected:
    static constexpr uint64_t kStart = kMiB;

    /// Makes an NTFS volume with so many files in it.
    void MakeVolume(uint64_t bytes, uint32_t clusterSize, int files)
    {
        Shell("truncate -s " + std::to_string(bytes) + " '" + volumeFile + "'");
        Shell("mkntfs -Q -F -q -c " + std::to_string(clusterSize) + " -p 2048 -H 255 -S 63 '" + volumeFile + "'");
        std::mt19937 random(static_cast<uint32_t>(files));
        for (int i = 0; i < files; ++i) {
            const std::string content = (folder / ("content" + std::to_string(i))).string();
            std::ofstream(content) << std::string(1 + random() % 200'000, 'x');
            Shell("ntfscp -q '" + volumeFile + "' '" + content + "' file" + std::to_string(i));
        }
    }

    std::string VolumeFact(const std::string& name)
    {
        return Shell("ntfsinfo -m '" + volumeFile + "' | sed -n 's/^\\t" + name + ": //p'");
    }

    /// The clusters in use, as the other program tells them.
    Bits OtherBits()
    {
        const std::string bitmapFile = (folder / "bitmap").string();
        Shell("ntfscat -i 6 '" + volumeFile + "' > '" + bitmapFile + "'");
        const std::string bytes = ReadFile(bitmapFile);
        Bits bits(std::stoull(VolumeFact("Volume Size in Clusters")));
        EXPECT_LE((bits.size() + 7) / 8, bytes.size());
        for (size_t i = 0; i < bits.size(); ++i) {
            bits[i] = (static_cast<uint8_t>(bytes[i / 8]) >> (i % 8) & 1) != 0;
        }
        return bits;
    }

    /// The volume as a partition of the machine's disk.
    machine::Volume& Show(uint64_t bytes)
    {
        machine.AddDisk(bytes + 2 * kMiB)
            .ImportFile(kStart, volumeFile)
            .Mbr({.partitions = {{.start = kStart, .length = bytes}}});
        return *machine.FindVolume(0, kStart);
    }

    TemporaryFolder folder;
    std::string volumeFile = (folder / "volume").string();
};

TEST_F(UsedExtentsNtfsTest, TheExtentsAreThoseOfTheBitmapFile)
{
    struct Shape {
        uint64_t bytes;
        uint32_t clusterSize;
    };
    for (const Shape& shape : {Shape{16 * kMiB, 512}, Shape{40 * kMiB + 512, 4096}, Shape{64 * kMiB, 65536}}) {
        std::filesystem::remove(volumeFile);
        MakeVolume(shape.bytes, shape.clusterSize, 12);
        const Bits bits = OtherBits();
        kk::Array<kk::VolumeExtent> found;

        EXPECT_EQ(kk::GetVolumeUsedExtents(Show(shape.bytes).DeviceName().c_str(), shape.clusterSize, found), 0);
        EXPECT_EQ(Extents(found.begin(), found.end()), NaiveExtents(bits, shape.clusterSize));
        EXPECT_GT(found.Count(), 1u);
        machine.RemoveDisk(0);
    }
}

TEST_F(UsedExtentsNtfsTest, TheMostScatteredBitmapIsReadAsItIs)
{
    constexpr uint64_t kBytes = 16 * kMiB;
    MakeVolume(kBytes, 512, 0);
    {
        std::ofstream content(folder / "scattered", std::ios::binary);
        std::mt19937 random(3);
        for (uint64_t i = 0; i < kBytes / 512 / 8; ++i) {
            content.put(static_cast<char>(random()));
        }
    }
    Shell("ntfscp -q -f -i '" + volumeFile + "' '" + (folder / "scattered").string() + "' 6");
    const Bits bits = OtherBits();
    kk::Array<kk::VolumeExtent> found;

    EXPECT_EQ(kk::GetVolumeUsedExtents(Show(kBytes).DeviceName().c_str(), 512, found), 0);
    EXPECT_EQ(Extents(found.begin(), found.end()), NaiveExtents(bits, 512));
    EXPECT_GT(found.Count(), 7000u);
}

TEST_F(UsedExtentsNtfsTest, AVolumeOfMoreClustersThanOneAnswerHoldsIsReadToItsEnd)
{
    constexpr uint64_t kBytes = 5 * kGiB;
    MakeVolume(kBytes, 512, 4);
    const Bits bits = OtherBits();
    ASSERT_GT(bits.size(), 8'388'672u);
    machine::Volume& volume = Show(kBytes);
    for (const uint64_t unit : {8u, 32768u}) {
        machine.switches.bitmapRoundingUnit = unit;
        kk::Array<kk::VolumeExtent> found;

        EXPECT_EQ(kk::GetVolumeUsedExtents(volume.DeviceName().c_str(), 512, found), 0);
        EXPECT_EQ(Extents(found.begin(), found.end()), NaiveExtents(bits, 512)) << unit;
    }
    EXPECT_EQ(machine.journal.Count({.code = kk::kFsctlGetVolumeBitmap}), 4u);
}

TEST_F(UsedExtentsNtfsTest, AVolumeThatIsNotNtfsAnswersWithItsRefusal)
{
    machine.AddDisk(8 * kMiB).Mbr({.partitions = {{.start = kStart, .length = 4 * kMiB}}});
    kk::Array<kk::VolumeExtent> found;

    EXPECT_EQ(kk::GetVolumeUsedExtents(machine.FindVolume(0, kStart)->DeviceName().c_str(), 4096, found),
              Status(0xC0000010));
}

}  // namespace
