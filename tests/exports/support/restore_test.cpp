#include "exports/support/restore_test.h"

#include <algorithm>

#include "support/vhdx_builder.h"

machine::MemoryStorage& RestoreTest::MakeBlankImage(uint64_t size, uint32_t sectorSize)
{
    image_ = std::make_unique<machine::MemoryStorage>(size);
    imageSectorSize_ = sectorSize;
    imageIsSaved_ = false;
    return *image_;
}

machine::MemoryStorage& RestoreTest::MakeImage(const DiskKind& kind, const machine::GptTable& table, uint64_t size)
{
    MakeBlankImage(size, kind.sectorSize);
    for (size_t i = 0; i < table.partitions.size(); ++i) {
        const machine::GptPartition& partition = table.partitions[i];
        PutInImage(partition.start, Pattern(partition.length, static_cast<uint8_t>(i)));
    }
    machine::WriteGptTable(*image_, kind.sectorSize, table);
    return *image_;
}

machine::MemoryStorage& RestoreTest::MakeImage(const DiskKind& kind, const std::vector<Place>& partitions,
                                               uint64_t size)
{
    machine::GptTable gpt;
    machine::MbrTable mbr;
    for (const Place& place : partitions) {
        gpt.partitions.push_back({.start = place.start, .length = place.length});
        mbr.partitions.push_back({.start = place.start, .length = place.length});
    }
    MakeImage(kind, gpt, size);
    if (kind.table == TableKind::Mbr) {
        const uint64_t headBytes = 2 * kind.sectorSize;
        PutZerosInImage(0, headBytes);
        machine::WriteMbrTable(*image_, kind.sectorSize, mbr);
    }
    return *image_;
}

void RestoreTest::PutInImage(uint64_t offset, const std::vector<uint8_t>& bytes)
{
    ASSERT_TRUE(image_->Write(offset, bytes));
    imageIsSaved_ = false;
}

std::vector<uint8_t> RestoreTest::ImageBytes(uint64_t offset, uint64_t length)
{
    std::vector<uint8_t> bytes(length);
    EXPECT_TRUE(image_->Read(offset, bytes));
    return bytes;
}

void RestoreTest::SaveImage()
{
    if (imageIsSaved_) {
        return;
    }
    // One block holds it all, so that a chunk is one read.
    VhdxBuilder(image_->Size())
        .SectorSize(imageSectorSize_)
        .BlockSize(256 * kMiB)
        .Data(*image_)
        .Save(folder / "image.vhdx");
    imageIsSaved_ = true;
}

machine::Disk& RestoreTest::AddTarget(uint64_t size, uint32_t sectorSize)
{
    if (machine.FindDisk(0) != nullptr) {
        machine.RemoveDisk(0);
    }
    machine::Disk& disk = machine.AddDisk(size, {.sectorSize = sectorSize, .number = 0});
    disk.WriteBytes(0, OldBytes(size));
    disk.AddWriteObserver([this](uint64_t offset, uint64_t length) { written.push_back({offset, length}); });
    return disk.Rescan();
}

machine::Disk& RestoreTest::AddTarget(const DiskKind& kind, const std::vector<Place>& partitions, uint64_t size)
{
    machine::Disk& disk = AddTarget(size, kind.sectorSize);
    machine::GptTable gpt;
    machine::MbrTable mbr;
    for (const Place& place : partitions) {
        gpt.partitions.push_back({.start = place.start, .length = place.length});
        mbr.partitions.push_back({.start = place.start, .length = place.length});
    }
    return kind.table == TableKind::Gpt ? disk.Gpt(gpt) : disk.Mbr(mbr);
}

void RestoreTest::BeginCall()
{
    SaveImage();
    machine.journal.Clear();
    machine.heap.ResetCounters();
    written.clear();
}

int32_t RestoreTest::RestorePartitions(const std::vector<uint32_t>& numbers, int32_t writeTable,
                                       const std::u16string& target)
{
    BeginCall();
    return api.restorePartitions(ImagePath().c_str(), target.c_str(), numbers.empty() ? nullptr : numbers.data(),
                                 static_cast<uint32_t>(numbers.size()), writeTable);
}

int32_t RestoreTest::RestoreToFreeSpace(uint32_t number, uint64_t regionStart, uint64_t regionLength, int32_t keepSize)
{
    BeginCall();
    return api.restoreToFreeSpace(ImagePath().c_str(), number, 0, regionStart, regionLength, keepSize);
}

int32_t RestoreTest::RestoreToVolume(uint32_t number, const std::u16string& volume, uint32_t extend)
{
    BeginCall();
    return api.restoreToVolume(ImagePath().c_str(), number, volume.c_str(), extend);
}

int32_t RestoreTest::CloneVolume(const std::u16string& source, const std::u16string& target, uint32_t extend)
{
    BeginCall();
    return api.cloneVolume(source.c_str(), target.c_str(), extend);
}

size_t RestoreTest::StepsLike(const std::string& step) const
{
    return static_cast<size_t>(
        std::ranges::count_if(Steps(), [&](const std::string& each) { return each.find(step) != std::string::npos; }));
}

std::vector<Place> RestoreTest::DriverKnows() const
{
    std::vector<Place> places;
    for (const kk::PartitionInformationEx& entry : Target().CachedLayout().partitions) {
        if (entry.partitionNumber != 0) {
            places.push_back(
                {static_cast<uint64_t>(entry.startingOffset), static_cast<uint64_t>(entry.partitionLength)});
        }
    }
    return places;
}

void RestoreTest::ExpectRestored(uint64_t from, uint64_t to, uint64_t length)
{
    EXPECT_TRUE(Target().ReadBytes(to, length) == ImageBytes(from, length))
        << length << " bytes at " << from << " of the image differ from those at " << to << " of the target";
}

void RestoreTest::ExpectOld(uint64_t offset, uint64_t length)
{
    EXPECT_TRUE(Target().ReadBytes(offset, length) == OldBytes(length))
        << "some of " << length << " bytes at " << offset << " have changed";
}

void RestoreTest::PretendSize(const char* object, int64_t size)
{
    machine.OnControl({.object = object, .code = 0x7405C},
                      [size](const machine::CallRecord&, const machine::ControlRequest&) {
                          return std::optional(machine::ControlAnswer{.output = machine::BytesOf(size)});
                      });
}
