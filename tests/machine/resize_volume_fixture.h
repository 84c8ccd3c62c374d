#pragma once

#include <algorithm>
#include <fstream>
#include <random>
#include <string>

#include "support/ntfs_judges.h"
#include "tests/machine/native_calls.h"

namespace machine {

inline constexpr uint64_t kStart = kMiB;
inline constexpr uint64_t kPartition = 64 * kMiB;
inline const std::u16string kVolume = u"\\Device\\HarddiskVolume1";

/// A partition of 64 MiB whose NTFS file system, with files in it, may be shorter.
class ResizeVolumeTest : public MachineTest {
protected:
    static constexpr uint64_t kFileBytes = 3 * kMiB;
    static constexpr int kFiles = 4;

    void AddVolume(uint64_t fileSystemBytes, uint32_t sectorSize = 512, uint64_t diskBytes = 128 * kMiB)
    {
        sectorSize_ = sectorSize;
        std::mt19937 random(7);
        FormatOptions options;
        for (int i = 0; i < kFiles; ++i) {
            std::string content(kFileBytes, '\0');
            std::generate(content.begin(), content.end(), [&random] { return static_cast<char>(random()); });
            std::ofstream(sources_[i].Path(), std::ios::binary) << content;
            options.files.emplace_back(sources_[i].Path(), "file" + std::to_string(i));
        }
        machine.AddDisk(diskBytes, {.sectorSize = sectorSize})
            .Gpt({.partitions = {{.start = kStart, .length = kPartition}}})
            .Format(kStart, fileSystemBytes, FileSystem::Ntfs, options);
    }
    int64_t Sectors(uint64_t bytes) const { return static_cast<int64_t>(bytes / sectorSize_); }

    static Status Extend(const Handle& handle, int64_t sectors)
    {
        return handle.Control(kk::kFsctlExtendVolume, 0, BytesOf(sectors)).status;
    }
    static Status Shrink(const Handle& handle, kk::ShrinkRequest request, int64_t sectors = 0, uint64_t flags = 0)
    {
        const kk::ShrinkVolumeInformation information = {request, 0, flags, sectors};
        return handle.Control(kk::kFsctlShrinkVolume, 0, BytesOf(information)).status;
    }
    static Status Prepare(const Handle& handle, int64_t sectors)
    {
        return Shrink(handle, kk::ShrinkRequest::Prepare, sectors);
    }
    static Status Commit(const Handle& handle) { return Shrink(handle, kk::ShrinkRequest::Commit); }
    static kk::NtfsVolumeData VolumeData()
    {
        return Handle(kVolume).Control(kk::kFsctlGetNtfsVolumeData, 96).As<kk::NtfsVolumeData>();
    }
    Disk& TheDisk() { return *machine.FindDisk(0); }

    /// Other people's tools find a clean file system of exactly that length, and every file is as it was.
    void ExpectASoundVolumeOf(uint64_t bytes)
    {
        const TemporaryFile exported;
        TheDisk().ExportFile(kStart, bytes, exported.Path());
        EXPECT_EQ(ComplaintAboutNtfs(exported.Path()), "");
        for (int i = 0; i < kFiles; ++i) {
            const TemporaryFile found;
            const std::string command = "ntfscat " + exported.Path() + " file" + std::to_string(i) + " > " +
                                        found.Path() + " && cmp " + found.Path() + " " + sources_[i].Path();
            const ToolResult compared = RunTool({"sh", "-c", command});
            EXPECT_EQ(compared.exitCode, 0) << compared.text;
        }
        const kk::NtfsVolumeData data = VolumeData();
        EXPECT_EQ(data.numberSectors, Sectors(bytes) - 1);
        EXPECT_EQ(data.totalClusters, (Sectors(bytes) - 1) / (data.bytesPerCluster / data.bytesPerSector));
    }

private:
    uint32_t sectorSize_ = 512;
    TemporaryFile sources_[kFiles];
};

}  // namespace machine
