#include "inventory.h"

#include <algorithm>
#include <cstddef>

#include "records.h"

namespace kkctl {

namespace {

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

}  // namespace

KK_STATUS ListDisks(const Kit& kit, std::vector<Disk>& disks)
{
    std::vector<KkDiskInfo> records;
    const KK_STATUS status = FetchRecords(kit.Calls().listDisks, records);
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
    const KK_STATUS status = FetchRecords(call, records);
    for (const KkPartitionInfo& record : records) {
        partitions.push_back(Unpack(record));
    }
    return status;
}

}  // namespace kkctl
