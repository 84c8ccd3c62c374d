#include "exports/support/partition_edit_test.h"

#include <cstring>

machine::Disk& PartitionEditTest::AddDisk(const DiskKind& kind, const std::vector<Place>& partitions, uint64_t size)
{
    machine::Disk& disk = AddBareDisk(size, kind.sectorSize);
    if (kind.table == TableKind::Gpt) {
        machine::GptTable table;
        for (const Place& place : partitions) {
            table.partitions.push_back({.start = place.start, .length = place.length});
        }
        return disk.Gpt(table);
    }
    machine::MbrTable table;
    for (const Place& place : partitions) {
        table.partitions.push_back({.start = place.start, .length = place.length});
    }
    return disk.Mbr(table);
}

machine::Disk& PartitionEditTest::AddBareDisk(uint64_t size, uint32_t sectorSize)
{
    if (machine.FindDisk(0) != nullptr) {
        machine.RemoveDisk(0);
    }
    machine::Disk& disk = machine.AddDisk(size, {.sectorSize = sectorSize, .number = 0});
    disk.AddWriteObserver([this](uint64_t offset, uint64_t length) { written.push_back({offset, length}); });
    return disk;
}

void PartitionEditTest::BeginCall()
{
    machine.journal.Clear();
    written.clear();
}

int32_t PartitionEditTest::Create(uint64_t regionStart, uint64_t regionLength, uint64_t size)
{
    created = kNotWritten;
    BeginCall();
    return api.createPartition(0, regionStart, regionLength, size, &created);
}

int32_t PartitionEditTest::Delete(uint64_t start)
{
    BeginCall();
    return api.deletePartition(0, start);
}

int32_t PartitionEditTest::Extend(uint64_t start, uint64_t newSize)
{
    BeginCall();
    return api.extendPartition(0, start, newSize);
}

int32_t PartitionEditTest::Shrink(uint64_t start, uint64_t newSize)
{
    BeginCall();
    return api.shrinkPartition(0, start, newSize);
}

std::vector<Place> PartitionEditTest::Partitions() const
{
    std::vector<Place> places;
    for (const kk::PartitionInformationEx& entry : TheDisk().CachedLayout().partitions) {
        if (entry.partitionNumber != 0) {
            places.push_back(
                {static_cast<uint64_t>(entry.startingOffset), static_cast<uint64_t>(entry.partitionLength)});
        }
    }
    return places;
}

void PartitionEditTest::PretendLayout(const LayoutAnswer& layout)
{
    machine.OnControl({.object = "PhysicalDrive0", .code = 0x70050},
                      [answer = layout.Bytes()](const machine::CallRecord&, const machine::ControlRequest&) {
                          return std::optional(machine::ControlAnswer{.output = answer});
                      });
}

void PartitionEditTest::PretendGeometry(uint64_t diskSize, uint32_t sectorSize)
{
    kk::DiskGeometryEx geometry = {};
    geometry.diskSize = static_cast<int64_t>(diskSize);
    geometry.bytesPerSector = sectorSize;
    machine.OnControl({.object = "PhysicalDrive0", .code = 0x700A0},
                      [geometry](const machine::CallRecord&, const machine::ControlRequest&) {
                          return std::optional(machine::ControlAnswer{.output = machine::BytesOf(geometry)});
                      });
}

std::vector<uint64_t> PartitionEditTest::SentWith(uint32_t code) const
{
    const std::vector<machine::CallRecord> calls = machine.journal.FindAll({.code = code});
    EXPECT_EQ(calls.size(), 1u);
    std::vector<uint64_t> numbers;
    if (calls.size() == 1) {
        EXPECT_EQ(calls[0].input.size() % sizeof(uint64_t), 0u);
        numbers.resize(calls[0].input.size() / sizeof(uint64_t));
        std::memcpy(numbers.data(), calls[0].input.data(), numbers.size() * sizeof(uint64_t));
    }
    return numbers;
}
