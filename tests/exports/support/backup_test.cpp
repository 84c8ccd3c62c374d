#include "exports/support/backup_test.h"

#include <algorithm>
#include <cstring>

using machine::FileSystem;

namespace {

constexpr uint8_t kUntouched = 0xEE;

}  // namespace

int32_t BackupTest::Backup(const BackupOptions& options)
{
    std::memset(&result, kUntouched, sizeof(result));
    const uint32_t* const numbers = options.partitions.empty() ? nullptr : options.partitions.data();
    return api.backup(0, WindowsPath(ImagePath()).c_str(), numbers, static_cast<uint32_t>(options.partitions.size()),
                      options.usedBlocksOnly, options.omitRemove, options.useSnapshots, options.setId,
                      options.setDiskIndex, options.setDiskCount, options.compact, &result);
}

machine::Disk& BackupTest::AddUsualDisk()
{
    machine::Disk& disk = machine.AddDisk(kUsualDiskSize);
    disk.Gpt({.partitions = {
                  {.start = kEfiStart, .length = kEfiLength, .type = machine::kEfiSystemType, .name = u"EFI"},
                  {.start = kReservedStart, .length = kReservedLength, .type = machine::kReservedType, .name = u"MSR"},
                  {.start = kNtfsStart, .length = kNtfsLength, .name = u"Data"}}});
    disk.Format(kEfiStart, kEfiLength, FileSystem::Fat32);
    FillPattern(disk, kReservedStart, kReservedLength, 7);
    const machine::TemporaryFile content(0, ".bin");
    Shell("head -c 3000000 /dev/urandom > " + content.Path());
    disk.Format(kNtfsStart, kNtfsLength, FileSystem::Ntfs, {.files = {{content.Path(), "content.bin"}}});
    return disk;
}

void BackupTest::FillPattern(machine::Disk& disk, uint64_t start, uint64_t length, uint8_t seed)
{
    std::vector<uint8_t> bytes(length);
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<uint8_t>(1 + (i + i / 251 + seed) % 255);
    }
    disk.WriteBytes(start, bytes);
}

std::shared_ptr<machine::TrackedStorage> BackupTest::Image() const
{
    std::shared_ptr<machine::TrackedStorage> image = images->ImageBytes(ImagePath());
    if (image == nullptr) {
        ADD_FAILURE() << "no image was made";
        image = std::make_shared<machine::TrackedStorage>(0);
    }
    return image;
}

std::vector<uint8_t> BackupTest::ImageBytes(uint64_t offset, uint64_t length) const
{
    std::vector<uint8_t> bytes(length);
    EXPECT_TRUE(Image()->Read(offset, bytes));
    return bytes;
}

machine::Layout BackupTest::ImageLayout(uint32_t sectorSize) const
{
    return machine::ParseLayout(*Image(), sectorSize);
}

std::vector<uint64_t> BackupTest::ImagePartitionStarts(uint32_t sectorSize) const
{
    std::vector<uint64_t> starts;
    const machine::Layout layout = ImageLayout(sectorSize);
    for (const kk::PartitionInformationEx& partition : layout.partitions) {
        if (partition.partitionNumber != 0) {
            starts.push_back(static_cast<uint64_t>(partition.startingOffset));
        }
    }
    return starts;
}

void BackupTest::ExpectSameBytes(machine::Disk& disk, uint64_t diskOffset, uint64_t imageOffset, uint64_t length) const
{
    EXPECT_TRUE(disk.ReadBytes(diskOffset, length) == ImageBytes(imageOffset, length))
        << length << " bytes at " << diskOffset << " of the disk differ from those at " << imageOffset;
}

bool BackupTest::ResultIsUntouched() const
{
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&result);
    return std::all_of(bytes, bytes + sizeof(result), [](uint8_t byte) { return byte == kUntouched; });
}
