#include "machine/ntfs_resizer.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "machine/host_tools.h"

namespace machine {

namespace {

constexpr uint64_t kBlockBytes = 64 * 1024;
constexpr size_t kSectorCountOffset = 0x28;  // in the boot sector

bool Says(const std::string& text, const char* words)
{
    return text.find(words) != std::string::npos;
}

Status StatusOf(const ToolResult& result)
{
    if (result.exitCode == 0) {
        return kSuccess;
    }
    const bool tooSmall = Says(result.text, "already occupied by data") || Says(result.text, "Volume is full") ||
                          Says(result.text, "minimum NTFS volume size");
    return tooSmall ? kDiskFull : kDiskCorruptError;
}

/// The tool counts whole clusters and sets a sector aside for the copy of the boot sector.
std::string SizeForTool(const NtfsGeometry& geometry, uint64_t sectors)
{
    const uint64_t clusters = (sectors - 1) * geometry.bytesPerSector / geometry.bytesPerCluster;
    return std::to_string(clusters * geometry.bytesPerCluster + geometry.bytesPerSector);
}

/// Lets the boot sector count the sectors behind the last whole cluster too.
void CountAllSectors(const std::string& path, uint32_t bytesPerSector, uint64_t sectors)
{
    FileStorage file(path);
    std::vector<uint8_t> boot(bytesPerSector);
    const bool read = file.Read(0, boot);
    std::memcpy(boot.data() + kSectorCountOffset, &sectors, sizeof(sectors));
    if (!read || !file.Write(0, boot)) {
        throw std::runtime_error("completing the boot sector failed");
    }
}

/// A hole in the file was one when it was exported, so nothing has changed there.
Status WriteChanges(Volume& volume, const std::string& path)
{
    FileStorage file(path);
    std::vector<uint8_t> after;
    std::vector<uint8_t> before;
    uint64_t done = 0;
    for (const Stretch& stretch : file.DataIn(0, file.Size())) {
        const uint64_t end = stretch.offset + stretch.length;
        for (uint64_t at = std::max(done, stretch.offset / kBlockBytes * kBlockBytes); at < end; at += kBlockBytes) {
            after.resize(std::min(kBlockBytes, file.Size() - at));
            before.resize(after.size());
            if (!file.Read(at, after) || !volume.Read(at, before)) {
                return kIoDeviceError;
            }
            const Status status = before == after ? kSuccess : volume.Write(at, after);
            if (status != kSuccess) {
                return status;
            }
            done = at + kBlockBytes;
        }
    }
    return kSuccess;
}

}  // namespace

Status ResizeNtfs(Volume& volume, const NtfsGeometry& geometry, uint64_t sectors)
{
    if (volume.Extents().size() != 1) {
        return kNotSupported;
    }
    const uint64_t bytes = sectors * geometry.bytesPerSector;
    const uint64_t bytesNow = geometry.totalSectors * geometry.bytesPerSector;
    const Extent& extent = volume.Extents().front();
    const TemporaryFile file;
    extent.disk->ExportFile(extent.start, std::max(bytes, bytesNow), file.Path());

    const Status status = StatusOf(
        RunTool({"ntfsresize", "--force", "--no-progress-bar", "--size", SizeForTool(geometry, sectors), file.Path()}));
    if (status != kSuccess) {
        return status;
    }
    std::filesystem::resize_file(file.Path(), bytes);
    CountAllSectors(file.Path(), geometry.bytesPerSector, sectors - 1);
    // Copies the boot sector to the last one, and takes back the request for a check that the other tool has left.
    RunToolOrThrow({"ntfsfix", "--clear-dirty", file.Path()});
    return WriteChanges(volume, file.Path());
}

}  // namespace machine
