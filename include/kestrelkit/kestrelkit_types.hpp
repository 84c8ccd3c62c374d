/*
 * The types of kestrelkit.hpp: results, and the records of kestrelkit.h without packing and with strings.
 */
#ifndef KESTRELKIT_KESTRELKIT_TYPES_HPP
#define KESTRELKIT_KESTRELKIT_TYPES_HPP

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kestrelkit/kestrelkit.h"

namespace kestrelkit {

/// UTF-16 text as the library takes it.
using WideString = std::basic_string<KkWideChar>;

/// A GUID in its on-disk byte order.
using GuidBytes = std::array<uint8_t, 16>;

/// What a call returned. Negative is failure.
struct [[nodiscard]] Status {
    KK_STATUS code = KK_STATUS_SUCCESS;

    [[nodiscard]] bool Failed() const { return code < 0; }
    explicit operator bool() const { return !Failed(); }
    bool operator==(const Status&) const = default;

    /// "0xC0000022".
    [[nodiscard]] std::string Text() const
    {
        constexpr char digits[] = "0123456789ABCDEF";
        std::string text = "0x";
        for (int shift = 28; shift >= 0; shift -= 4) {
            text += digits[(static_cast<uint32_t>(code) >> shift) & 0xF];
        }
        return text;
    }
};

/// What a call returned and what it found. The value of a failure is empty unless the function says otherwise.
template <typename T>
struct [[nodiscard]] Result {
    Status status;
    T value{};

    explicit operator bool() const { return !status.Failed(); }
    const T& operator*() const { return value; }
    const T* operator->() const { return &value; }
};

enum class PartitionStyle : uint32_t {
    Raw = KK_PARTITION_STYLE_RAW,
    Mbr = KK_PARTITION_STYLE_MBR,
    Gpt = KK_PARTITION_STYLE_GPT,
};

/// A KkDiskInfo.
struct Disk {
    uint32_t number = 0;
    uint64_t size = 0;
    uint32_t sectorSize = 0;
    PartitionStyle style = PartitionStyle::Raw;
    uint32_t partitionCount = 0;
};

/// A KkPartitionInfo, its text without what lies behind the end.
struct Partition {
    uint32_t number = 0;
    uint64_t startOffset = 0;
    uint64_t length = 0;
    GuidBytes typeGuid = {};
    uint8_t mbrType = 0;
    WideString name;
    WideString driveLetter;
    uint64_t fileSystemSize = 0;
    WideString fileSystemName;
    WideString deviceName;
    WideString volumePath;
};

/// An ImagePartitionRecord.
struct ImagePartition {
    uint32_t number = 0;
    uint64_t offset = 0;
    uint64_t length = 0;
    GuidBytes typeGuid = {};
    WideString name;
};

/// An ImageInfoRecord and all partitions.
struct Image {
    uint64_t virtualSize = 0;
    uint32_t logicalSectorSize = 0;
    uint32_t blockSize = 0;
    GuidBytes diskGuid = {};
    PartitionStyle style = PartitionStyle::Raw;
    std::vector<ImagePartition> partitions;
};

/// Numbers of partitions; nothing means all of them. An empty list is refused with KK_STATUS_INVALID_PARAMETER, since
/// to the library it would mean all of them too.
using PartitionNumbers = std::optional<std::span<const uint32_t>>;

/// How KkBackup is to work.
struct BackupOptions {
    PartitionNumbers partitions = std::nullopt;
    bool usedBlocksOnly = true;
    bool removeOmitted = false;
    bool useSnapshots = true;
    bool compact = false;
    std::string setId = {};  ///< empty: one is made up
    uint32_t setDiskIndex = 0;
    uint32_t setDiskCount = 1;
};

/// What a backup left, and a BackupResult. With `isComplete` all data is in the image, even if the call failed
/// afterwards; without it the rest is empty.
struct Backup {
    bool isComplete = false;
    bool snapshotsRequested = false;
    bool snapshotsUsed = false;
    uint32_t partitionsCopied = 0;
    uint64_t bytesCopied = 0;
    uint32_t snapshotUsedBlockCopies = 0;
    uint32_t snapshotWholeCopies = 0;
    uint32_t liveUsedBlockCopies = 0;
    uint32_t liveWholeCopies = 0;
    uint32_t rawDiskCopies = 0;
};

/// Bytes of a disk.
struct Region {
    uint64_t start = 0;
    uint64_t length = 0;

    bool operator==(const Region&) const = default;
};

namespace detail {

/// Reads a text field by its place in the record: in packed records such fields lie at odd addresses.
template <typename Record>
WideString TextAt(const Record& record, size_t offset, size_t size)
{
    WideString text(size / sizeof(KkWideChar), KkWideChar{0});
    std::memcpy(text.data(), reinterpret_cast<const std::byte*>(&record) + offset, size);
    text.erase(std::find(text.begin(), text.end(), KkWideChar{0}), text.end());
    return text;
}

inline Disk Unpack(const KkDiskInfo& record)
{
    return {record.number, record.size, record.sectorSize, static_cast<PartitionStyle>(record.partitionStyle),
            record.partitionCount};
}

inline Partition Unpack(const KkPartitionInfo& record)
{
    using Record = KkPartitionInfo;
    Partition partition;
    partition.number = record.number;
    partition.startOffset = record.startOffset;
    partition.length = record.length;
    std::copy(std::begin(record.typeGuid), std::end(record.typeGuid), partition.typeGuid.begin());
    partition.mbrType = record.mbrType;
    partition.name = TextAt(record, offsetof(Record, name), sizeof(Record::name));
    partition.driveLetter = TextAt(record, offsetof(Record, driveLetter), sizeof(Record::driveLetter));
    partition.fileSystemSize = record.fileSystemSize;
    partition.fileSystemName = TextAt(record, offsetof(Record, fileSystemName), sizeof(Record::fileSystemName));
    partition.deviceName = TextAt(record, offsetof(Record, deviceName), sizeof(Record::deviceName));
    partition.volumePath = TextAt(record, offsetof(Record, volumePath), sizeof(Record::volumePath));
    return partition;
}

inline Backup Unpack(const BackupResult& record)
{
    return {.isComplete = true,
            .snapshotsRequested = record.snapshotsRequested != 0,
            .snapshotsUsed = record.snapshotsUsed != 0,
            .partitionsCopied = record.partitionsCopied,
            .bytesCopied = record.bytesCopied,
            .snapshotUsedBlockCopies = record.snapshotUsedBlockCopies,
            .snapshotWholeCopies = record.snapshotWholeCopies,
            .liveUsedBlockCopies = record.liveUsedBlockCopies,
            .liveWholeCopies = record.liveWholeCopies,
            .rawDiskCopies = record.rawDiskCopies};
}

inline ImagePartition Unpack(const ImagePartitionRecord& record)
{
    using Record = ImagePartitionRecord;
    ImagePartition partition;
    partition.number = record.number;
    partition.offset = record.offset;
    partition.length = record.length;
    std::copy(std::begin(record.typeGuid), std::end(record.typeGuid), partition.typeGuid.begin());
    partition.name = TextAt(record, offsetof(Record, name), sizeof(Record::name));
    return partition;
}

template <typename Item, typename Record>
std::vector<Item> UnpackAll(const std::vector<Record>& records)
{
    std::vector<Item> items;
    items.reserve(records.size());
    for (const Record& record : records) {
        items.push_back(Unpack(record));
    }
    return items;
}

}  // namespace detail

}  // namespace kestrelkit

#endif
