#include "inventory.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "text.h"

namespace kkctl {

namespace {

/// Reads a text field by its place in the record, because in packed records such fields lie at odd addresses.
std::string TextAt(const KkPartitionInfo& record, size_t offset, size_t size)
{
    WideString text(size / sizeof(KkWideChar), KkWideChar{0});
    std::memcpy(text.data(), reinterpret_cast<const std::byte*>(&record) + offset, size);
    text.erase(std::find(text.begin(), text.end(), KkWideChar{0}), text.end());
    return ToUtf8(text);
}

Partition Unpack(const KkPartitionInfo& record)
{
    using Info = KkPartitionInfo;
    Partition partition;
    partition.number = record.number;
    partition.startOffset = record.startOffset;
    partition.length = record.length;
    std::copy(std::begin(record.typeGuid), std::end(record.typeGuid), partition.typeGuid.begin());
    partition.mbrType = record.mbrType;
    partition.name = TextAt(record, offsetof(Info, name), sizeof(Info::name));
    partition.driveLetter = TextAt(record, offsetof(Info, driveLetter), sizeof(Info::driveLetter));
    partition.fileSystemSize = record.fileSystemSize;
    partition.fileSystemName = TextAt(record, offsetof(Info, fileSystemName), sizeof(Info::fileSystemName));
    partition.deviceName = TextAt(record, offsetof(Info, deviceName), sizeof(Info::deviceName));
    partition.volumePath = TextAt(record, offsetof(Info, volumePath), sizeof(Info::volumePath));
    return partition;
}

/// Counts, fetches into zeroed records and keeps what was written: between the calls the number may change.
template <typename Record, typename Call>
KK_STATUS Fetch(Call call, std::vector<Record>& records)
{
    uint32_t count = 0;
    KK_STATUS status = call(static_cast<Record*>(nullptr), 0u, &count);
    if (status < 0 || count == 0) {
        return status;
    }
    records.resize(count);
    status = call(records.data(), count, &count);
    records.resize(status < 0 ? 0 : std::min<size_t>(records.size(), count));
    return status;
}

}  // namespace

KK_STATUS ListDisks(const Kit& kit, std::vector<Disk>& disks)
{
    std::vector<KkDiskInfo> records;
    const KK_STATUS status = Fetch(kit.Calls().listDisks, records);
    for (const KkDiskInfo& record : records) {
        disks.push_back({record.number, record.size, record.sectorSize, record.partitionStyle, record.partitionCount});
    }
    return status;
}

KK_STATUS ListPartitions(const Kit& kit, uint32_t diskNumber, std::vector<Partition>& partitions)
{
    const auto call = [&](KkPartitionInfo* records, uint32_t capacity, uint32_t* count) {
        return kit.Calls().listPartitions(diskNumber, records, capacity, count);
    };
    std::vector<KkPartitionInfo> records;
    const KK_STATUS status = Fetch(call, records);
    for (const KkPartitionInfo& record : records) {
        partitions.push_back(Unpack(record));
    }
    return status;
}

}  // namespace kkctl
