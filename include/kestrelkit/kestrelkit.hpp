/*
 * KestrelkitCore.dll for C++20: kestrelkit.h with containers, strings and results, and without a source file.
 *
 *     const kestrelkit::Library library(kestrelkit::Exports::Linked());
 *     const auto disks = library.ListDisks();
 *     if (!disks) { ... disks.status ... }
 *     for (const kestrelkit::Disk& disk : *disks) { ... }
 *
 * Every function makes the call of its name (BackUp makes KkBackup), and kestrelkit.h says what that does; listing and
 * inspecting make it as often as it takes. Nothing here throws but std::bad_alloc. Text is std::wstring on Windows,
 * elsewhere std::u16string.
 */
#ifndef KESTRELKIT_KESTRELKIT_HPP
#define KESTRELKIT_KESTRELKIT_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "kestrelkit/kestrelkit_types.hpp"

namespace kestrelkit {

/// The library's functions, wherever they come from.
struct Exports {
    decltype(&KkListDisks) listDisks = nullptr;
    decltype(&KkListPartitions) listPartitions = nullptr;
    decltype(&KkSetDriveLetter) setDriveLetter = nullptr;
    decltype(&KkAddMountPoint) addMountPoint = nullptr;
    decltype(&KkCreatePartition) createPartition = nullptr;
    decltype(&KkDeletePartition) deletePartition = nullptr;
    decltype(&KkExtendPartition) extendPartition = nullptr;
    decltype(&KkShrinkPartition) shrinkPartition = nullptr;
    decltype(&KkFormatPartition) formatPartition = nullptr;
    decltype(&KkReboot) reboot = nullptr;
    decltype(&KkBackup) backup = nullptr;
    decltype(&KkInspectImage) inspectImage = nullptr;
    decltype(&KkMountImage) mountImage = nullptr;
    decltype(&KkUnmountImage) unmountImage = nullptr;
    decltype(&KkQueryDiskImage) queryDiskImage = nullptr;
    decltype(&KkRestorePartitions) restorePartitions = nullptr;
    decltype(&KkRestoreToFreeSpace) restoreToFreeSpace = nullptr;
    decltype(&KkRestoreToVolume) restoreToVolume = nullptr;
    decltype(&KkCloneVolume) cloneVolume = nullptr;
    decltype(&KkMountImageOverlay) mountImageOverlay = nullptr;
    decltype(&KkDiscardOverlay) discardOverlay = nullptr;
    decltype(&KkRecoverShrinkToFit) recoverShrinkToFit = nullptr;

    /// Those of the import library. Only who calls this has to link to it.
    static Exports Linked()
    {
        Exports exports;
        exports.listDisks = &KkListDisks;
        exports.listPartitions = &KkListPartitions;
        exports.setDriveLetter = &KkSetDriveLetter;
        exports.addMountPoint = &KkAddMountPoint;
        exports.createPartition = &KkCreatePartition;
        exports.deletePartition = &KkDeletePartition;
        exports.extendPartition = &KkExtendPartition;
        exports.shrinkPartition = &KkShrinkPartition;
        exports.formatPartition = &KkFormatPartition;
        exports.reboot = &KkReboot;
        exports.backup = &KkBackup;
        exports.inspectImage = &KkInspectImage;
        exports.mountImage = &KkMountImage;
        exports.unmountImage = &KkUnmountImage;
        exports.queryDiskImage = &KkQueryDiskImage;
        exports.restorePartitions = &KkRestorePartitions;
        exports.restoreToFreeSpace = &KkRestoreToFreeSpace;
        exports.restoreToVolume = &KkRestoreToVolume;
        exports.cloneVolume = &KkCloneVolume;
        exports.mountImageOverlay = &KkMountImageOverlay;
        exports.discardOverlay = &KkDiscardOverlay;
        exports.recoverShrinkToFit = &KkRecoverShrinkToFit;
        return exports;
    }

    /// Those that `find` knows by their names, such as GetProcAddress of a module. Nothing when one is missing.
    template <typename Find>
    static std::optional<Exports> Found(Find find)
    {
        Exports exports;
        bool isComplete = true;
        const auto fill = [&](auto& slot, const char* name) {
            slot = reinterpret_cast<std::remove_reference_t<decltype(slot)>>(find(name));
            isComplete = isComplete && slot != nullptr;
        };
        fill(exports.listDisks, "KkListDisks");
        fill(exports.listPartitions, "KkListPartitions");
        fill(exports.setDriveLetter, "KkSetDriveLetter");
        fill(exports.addMountPoint, "KkAddMountPoint");
        fill(exports.createPartition, "KkCreatePartition");
        fill(exports.deletePartition, "KkDeletePartition");
        fill(exports.extendPartition, "KkExtendPartition");
        fill(exports.shrinkPartition, "KkShrinkPartition");
        fill(exports.formatPartition, "KkFormatPartition");
        fill(exports.reboot, "KkReboot");
        fill(exports.backup, "KkBackup");
        fill(exports.inspectImage, "KkInspectImage");
        fill(exports.mountImage, "KkMountImage");
        fill(exports.unmountImage, "KkUnmountImage");
        fill(exports.queryDiskImage, "KkQueryDiskImage");
        fill(exports.restorePartitions, "KkRestorePartitions");
        fill(exports.restoreToFreeSpace, "KkRestoreToFreeSpace");
        fill(exports.restoreToVolume, "KkRestoreToVolume");
        fill(exports.cloneVolume, "KkCloneVolume");
        fill(exports.mountImageOverlay, "KkMountImageOverlay");
        fill(exports.discardOverlay, "KkDiscardOverlay");
        fill(exports.recoverShrinkToFit, "KkRecoverShrinkToFit");
        return isComplete ? std::optional(exports) : std::nullopt;
    }
};

namespace detail {

inline constexpr uint64_t kAlignment = 1 << 20;  // of the partitions that the library creates

/// Counts, then fetches into zeroed records. Once more when there are more of them by then, but not for ever.
template <typename Record, typename Call>
KK_STATUS FetchRecords(Call call, std::vector<Record>& records)
{
    uint32_t count = 0;
    KK_STATUS status = call(static_cast<Record*>(nullptr), uint32_t{0}, &count);
    for (int attempt = 0; attempt < 4 && status >= 0 && count > records.size(); ++attempt) {
        records.assign(count, Record{});
        status = call(records.data(), count, &count);
    }
    records.resize(status < 0 ? 0 : std::min<size_t>(records.size(), count));
    return status;
}

inline bool IsEmptyList(const PartitionNumbers& numbers)
{
    return numbers.has_value() && numbers->empty();
}

inline const uint32_t* Pointer(const PartitionNumbers& numbers)
{
    return numbers ? numbers->data() : nullptr;
}

inline uint32_t Count(const PartitionNumbers& numbers)
{
    return numbers ? static_cast<uint32_t>(numbers->size()) : 0;
}

}  // namespace detail

/// The calls, with C++ types. Objects are cheap to copy.
class Library {
public:
    explicit Library(const Exports& exports) : exports_(exports) {}

    [[nodiscard]] Result<std::vector<Disk>> ListDisks() const
    {
        std::vector<KkDiskInfo> records;
        const KK_STATUS status = detail::FetchRecords(exports_.listDisks, records);
        return {{status}, detail::UnpackAll<Disk>(records)};
    }

    [[nodiscard]] Result<std::vector<Partition>> ListPartitions(uint32_t disk) const
    {
        std::vector<KkPartitionInfo> records;
        const auto call = [&](KkPartitionInfo* items, uint32_t capacity, uint32_t* count) {
            return exports_.listPartitions(disk, items, capacity, count);
        };
        const KK_STATUS status = detail::FetchRecords(call, records);
        return {{status}, detail::UnpackAll<Partition>(records)};
    }

    /// Without a letter the volume only loses the one that it has.
    Status SetDriveLetter(uint32_t disk, uint64_t startOffset, std::optional<KkWideChar> letter) const
    {
        return {exports_.setDriveLetter(disk, startOffset, letter.value_or(KkWideChar{0}))};
    }

    Status AddMountPoint(uint32_t disk, uint64_t startOffset, const WideString& directory) const
    {
        return {exports_.addMountPoint(disk, startOffset, directory.c_str())};
    }

    /// Tells where the partition starts. Without a size it takes all the room.
    [[nodiscard]] Result<uint64_t> CreatePartition(uint32_t disk, const Region& region,
                                                   std::optional<uint64_t> size = std::nullopt) const
    {
        uint64_t start = 0;
        const KK_STATUS status = exports_.createPartition(disk, region.start, region.length, size.value_or(0), &start);
        return {{status}, start};
    }

    Status DeletePartition(uint32_t disk, uint64_t startOffset) const
    {
        return {exports_.deletePartition(disk, startOffset)};
    }

    /// To the whole new size; without one it takes all the room behind it.
    Status ExtendPartition(uint32_t disk, uint64_t startOffset, std::optional<uint64_t> newSize = std::nullopt) const
    {
        return {exports_.extendPartition(disk, startOffset, newSize.value_or(0))};
    }

    Status ShrinkPartition(uint32_t disk, uint64_t startOffset, uint64_t newSize) const
    {
        return {exports_.shrinkPartition(disk, startOffset, newSize)};
    }

    /// Beware: label and file system reach a command line as they are.
    Status FormatPartition(uint32_t disk, uint64_t startOffset, const WideString& fileSystem = {},
                           const WideString& label = {}, bool quick = true) const
    {
        return {exports_.formatPartition(static_cast<int32_t>(disk), startOffset, fileSystem.c_str(), label.c_str(),
                                         quick ? 1 : 0)};
    }

    Status Reboot() const { return {exports_.reboot()}; }

    /// The value counts after a failure too: see Backup::isComplete.
    [[nodiscard]] Result<Backup> BackUp(uint32_t disk, const WideString& imagePath, const BackupOptions& options) const
    {
        if (detail::IsEmptyList(options.partitions)) {
            return {{KK_STATUS_INVALID_PARAMETER}, {}};
        }
        constexpr uint32_t untouched = 0xFFFFFFFF;  // the library writes 0 there when all data was copied
        BackupResult result = {};
        result.reserved12 = untouched;
        const KK_STATUS status = exports_.backup(
            disk, imagePath.c_str(), detail::Pointer(options.partitions), detail::Count(options.partitions),
            options.usedBlocksOnly ? 1 : 0, options.removeOmitted ? 1 : 0, options.useSnapshots ? 1 : 0,
            options.setId.c_str(), options.setDiskIndex, options.setDiskCount, options.compact ? 1 : 0, &result);
        return {{status}, result.reserved12 != untouched ? detail::Unpack(result) : Backup{}};
    }

    [[nodiscard]] Result<Image> InspectImage(const WideString& imagePath) const
    {
        ImageInfoRecord info = {};
        std::vector<ImagePartitionRecord> records;
        const auto call = [&](ImagePartitionRecord* items, uint32_t capacity, uint32_t* count) {
            return exports_.inspectImage(imagePath.c_str(), &info, items, capacity, count);
        };
        const KK_STATUS status = detail::FetchRecords(call, records);
        if (status < 0) {
            return {{status}, {}};
        }
        Image image = {info.virtualSize,
                       info.logicalSectorSize,
                       info.blockSize,
                       {},
                       static_cast<PartitionStyle>(info.partitionStyle),
                       detail::UnpackAll<ImagePartition>(records)};
        std::copy(std::begin(info.diskGuid), std::end(info.diskGuid), image.diskGuid.begin());
        return {{status}, std::move(image)};
    }

    /// The disk's number, if the system tells it.
    [[nodiscard]] Result<std::optional<uint32_t>> MountImage(const WideString& imagePath) const
    {
        uint32_t number = kNoDisk;
        const KK_STATUS status = exports_.mountImage(imagePath.c_str(), &number);
        return {{status}, KnownDisk(number)};
    }

    Status UnmountImage(const WideString& imagePath) const { return {exports_.unmountImage(imagePath.c_str())}; }

    /// The file behind a disk that is an attached image; nothing for other disks.
    [[nodiscard]] Result<std::optional<WideString>> QueryDiskImage(uint32_t disk) const
    {
        constexpr uint32_t longestPathUnits = 32768;
        WideString path(longestPathUnits, KkWideChar{0});
        uint32_t isImage = 0;
        const KK_STATUS status = exports_.queryDiskImage(disk, &isImage, path.data(), longestPathUnits);
        path.erase(std::find(path.begin(), path.end(), KkWideChar{0}), path.end());
        return {{status}, isImage != 0 ? std::optional(std::move(path)) : std::nullopt};
    }

    Status RestorePartitions(const WideString& imagePath, const WideString& targetPath,
                             const PartitionNumbers& partitions, bool writePartitionTable) const
    {
        if (detail::IsEmptyList(partitions)) {
            return {KK_STATUS_INVALID_PARAMETER};
        }
        return {exports_.restorePartitions(imagePath.c_str(), targetPath.c_str(), detail::Pointer(partitions),
                                           detail::Count(partitions), writePartitionTable ? 1 : 0)};
    }

    Status RestoreToFreeSpace(const WideString& imagePath, uint32_t partition, uint32_t targetDisk,
                              const Region& region, bool keepSourceSize) const
    {
        return {exports_.restoreToFreeSpace(imagePath.c_str(), partition, targetDisk, region.start, region.length,
                                            keepSourceSize ? 1 : 0)};
    }

    Status RestoreToVolume(const WideString& imagePath, uint32_t partition, const WideString& volumePath,
                           bool extendFileSystem) const
    {
        return {exports_.restoreToVolume(imagePath.c_str(), partition, volumePath.c_str(), extendFileSystem ? 1 : 0)};
    }

    Status CloneVolume(const WideString& sourcePath, const WideString& targetPath, bool extendFileSystem) const
    {
        return {exports_.cloneVolume(sourcePath.c_str(), targetPath.c_str(), extendFileSystem ? 1 : 0)};
    }

    /// As MountImage.
    [[nodiscard]] Result<std::optional<uint32_t>> MountImageOverlay(const WideString& parentImagePath,
                                                                    const WideString& overlayPath) const
    {
        uint32_t number = kNoDisk;
        const KK_STATUS status = exports_.mountImageOverlay(parentImagePath.c_str(), overlayPath.c_str(), &number);
        return {{status}, KnownDisk(number)};
    }

    Status DiscardOverlay(const WideString& overlayPath) const
    {
        return {exports_.discardOverlay(overlayPath.c_str())};
    }

    Status RecoverShrinkToFit(const WideString& imagePath, uint32_t partition, uint32_t targetDisk,
                              uint64_t targetPartitionOffset) const
    {
        return {exports_.recoverShrinkToFit(imagePath.c_str(), static_cast<int32_t>(partition), targetDisk,
                                            targetPartitionOffset)};
    }

private:
    static constexpr uint32_t kNoDisk = 0xFFFFFFFF;

    static std::optional<uint32_t> KnownDisk(uint32_t number)
    {
        return number == kNoDisk ? std::nullopt : std::optional(number);
    }

    Exports exports_;
};

/// All gaps between a disk's partitions, down to a byte, and before and behind them. Nothing before the first MiB, in the
/// last 34 sectors of a GPT disk or past what an MBR can address; none on a disk without a table. Partitions may come in
/// any order, overlap and reach past the disk. Beware on MBR disks: extended partitions are not listed, and what is free
/// inside one looks like any other gap.
inline std::vector<Region> Gaps(const Disk& disk, std::vector<Partition> partitions)
{
    constexpr uint64_t gptEndSectors = 34;
    constexpr uint64_t mbrSectors = 1ull << 32;
    if (disk.style == PartitionStyle::Raw) {
        return {};
    }
    const uint64_t end = disk.style == PartitionStyle::Gpt
                             ? disk.size - std::min(disk.size, gptEndSectors * disk.sectorSize)
                             : std::min(disk.size, mbrSectors * disk.sectorSize);
    std::sort(partitions.begin(), partitions.end(),
              [](const Partition& a, const Partition& b) { return a.startOffset < b.startOffset; });

    std::vector<Region> gaps;
    uint64_t position = detail::kAlignment;
    const auto addUpTo = [&](uint64_t next) {
        if (next > position) {
            gaps.push_back({position, next - position});
        }
    };
    for (const Partition& partition : partitions) {
        addUpTo(std::min(partition.startOffset, end));
        const uint64_t length = std::min(partition.length, UINT64_MAX - partition.startOffset);
        position = std::max(position, partition.startOffset + length);
    }
    addUpTo(end);
    return gaps;
}

/// The gaps that have a whole MiB or more from a MiB boundary on, without what lies before it: where a partition may be
/// created without a size.
inline std::vector<Region> FreeRegions(const Disk& disk, std::vector<Partition> partitions)
{
    std::vector<Region> regions;
    for (const Region& gap : Gaps(disk, std::move(partitions))) {
        const uint64_t padding = (detail::kAlignment - gap.start % detail::kAlignment) % detail::kAlignment;
        if (gap.length >= padding + detail::kAlignment) {
            regions.push_back({gap.start + padding, gap.length - padding});
        }
    }
    return regions;
}

}  // namespace kestrelkit

#endif
