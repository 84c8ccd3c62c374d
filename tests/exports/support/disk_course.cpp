#include "exports/support/disk_course.h"

#include <sstream>

#include "exports/support/list_partitions_test.h"
#include "machine/text.h"
#include "support/pattern.h"
#include "support/vhdx_builder.h"

namespace {

constexpr uint64_t kMiB = 1 << 20;

// The disk that is worked on, and what is in the image.
constexpr uint64_t kDiskSize = 80 * kMiB;
constexpr uint64_t kOldStart = kMiB;
constexpr uint64_t kOldLength = 8 * kMiB;
constexpr uint64_t kNewStart = 12 * kMiB;
constexpr uint64_t kNewLength = 16 * kMiB;
constexpr uint64_t kShrunkLength = 10 * kMiB;
constexpr uint64_t kFreeStart = 40 * kMiB;
constexpr uint64_t kFreeLength = 30 * kMiB;
constexpr uint64_t kImageSize = 16 * kMiB;
constexpr Place kInImage[] = {{kMiB, 3 * kMiB}, {5 * kMiB, 4 * kMiB}};
constexpr size_t kMarkBytes = 70'000;

DiskKind KindOf(uint32_t number)
{
    constexpr DiskKind kKinds[] = {kSmallGpt, kSmallMbr};
    return kKinds[number % std::size(kKinds)];
}

uint64_t Sum(const std::vector<uint8_t>& bytes)
{
    uint64_t sum = 0;
    for (const uint8_t byte : bytes) {
        sum = sum * 31 + byte;
    }
    return sum;
}

}  // namespace

DiskCourse::DiskCourse(machine::Machine& machine, const machine::KestrelkitApi& api,
                       machine::MemoryVirtualDisks& images, const std::filesystem::path& folder, uint32_t number)
    : machine_(machine), api_(api), folder_(folder / std::to_string(number)), number_(number), work_(2 * number),
      target_(2 * number + 1)
{
    std::filesystem::create_directories(folder_);
    machine::Disk& work = machine.AddDisk(kDiskSize, {.number = work_});
    if (KindOf(number).table == TableKind::Gpt) {
        work.Gpt({.partitions = {{.start = kOldStart, .length = kOldLength}}});
    } else {
        work.Mbr({.partitions = {{.start = kOldStart, .length = kOldLength}}});
    }
    work.WriteBytes(kOldStart, Pattern(kMarkBytes, static_cast<uint8_t>(number)));
    machine.AddDisk(kImageSize + 4 * kMiB, {.number = target_});

    const std::filesystem::path image = folder_ / "source.vhdx";
    machine::TrackedStorage& bytes = images.StandInFor(image, kImageSize, 512);
    machine::GptTable table;
    for (const Place& place : kInImage) {
        table.partitions.push_back({.start = place.start, .length = place.length});
        EXPECT_TRUE(bytes.Write(place.start, Pattern(kMarkBytes, static_cast<uint8_t>(place.start / kMiB + number))));
    }
    machine::WriteGptTable(bytes, 512, table);
    VhdxBuilder(kImageSize).Data(bytes).Save(image);
}

void DiskCourse::Run()
{
    EditPartitions();
    BackUp();
    UseImage();
    UseOverlay();
    Say("delete", api_.deletePartition(work_, kNewStart));
    List(work_);
}

void DiskCourse::EditPartitions()
{
    uint64_t start = 0;
    const int32_t created = api_.createPartition(work_, kNewStart, 2 * kNewLength, kNewLength, &start);
    Say("create", created, std::to_string(start));
    Say("letter", api_.setDriveLetter(work_, kNewStart, static_cast<KkWideChar>(u'G' + number_)));
    Say("format", api_.formatPartition(static_cast<int32_t>(work_), kNewStart, u"NTFS", u"Threads", 1));
    List(work_);
    Say("shrink", api_.shrinkPartition(work_, kNewStart, kShrunkLength));
    List(work_);
    Say("extend", api_.extendPartition(work_, kNewStart, kNewLength));
    List(work_);
}

void DiskCourse::BackUp()
{
    // Only one caller at a time gets a snapshot, so only one asks.
    const uint32_t useSnapshots = number_ == 0 ? 1 : 0;
    BackupResult result = {};
    const std::u16string image = PathOf("backup.vhdx");
    const int32_t status = api_.backup(work_, image.c_str(), nullptr, 0, 1, 0, useSnapshots, nullptr, 0, 1, 0, &result);
    std::ostringstream figures;
    figures << result.snapshotsUsed << ' ' << result.partitionsCopied << ' ' << result.snapshotWholeCopies << ' '
            << result.liveUsedBlockCopies << ' ' << result.liveWholeCopies << ' ' << result.rawDiskCopies;
    Say("backup", status, figures.str());

    uint32_t disk = 0;
    uint32_t isImage = 0;
    Say("mount", api_.mountImage(image.c_str(), &disk));
    Say("query", api_.queryDiskImage(disk, &isImage, nullptr, 0), std::to_string(isImage));
    List(disk);
    Say("unmount", api_.unmountImage(image.c_str()));
}

void DiskCourse::UseImage()
{
    const std::u16string image = PathOf("source.vhdx");
    ImageInfoRecord info = {};
    ImagePartitionRecord partitions[4] = {};
    uint32_t count = 0;
    const int32_t inspected = api_.inspectImage(image.c_str(), &info, partitions, 4, &count);
    Say("inspect", inspected, std::to_string(info.virtualSize) + " " + std::to_string(count));
    for (uint32_t i = 0; i < count; ++i) {
        words_.push_back("  " + std::to_string(partitions[i].offset) + " " + std::to_string(partitions[i].length));
    }
    const std::u16string disk = u"\\\\.\\PhysicalDrive" + machine::Utf16(std::to_string(target_));
    Say("restore", api_.restorePartitions(image.c_str(), disk.c_str(), nullptr, 0, 1));
    Say("restore to free space", api_.restoreToFreeSpace(image.c_str(), 2, work_, kFreeStart, kFreeLength, 1));
    List(work_);
    Say("restore to volume", api_.restoreToVolume(image.c_str(), 1, DeviceAt(kFreeStart).c_str(), 0));
    Say("clone", api_.cloneVolume(DeviceAt(kFreeStart).c_str(), DeviceAt(kOldStart).c_str(), 0));
}

void DiskCourse::UseOverlay()
{
    const std::u16string image = PathOf("source.vhdx");
    const std::u16string overlay = PathOf("overlay.avhdx");
    uint32_t disk = 0;
    Say("mount overlay", api_.mountImageOverlay(image.c_str(), overlay.c_str(), &disk));
    List(disk);
    Say("discard", api_.discardOverlay(overlay.c_str()));
    Say("recover", api_.recoverShrinkToFit(image.c_str(), 2, work_, kOldStart));
}

std::vector<std::string> DiskCourse::Words() const
{
    std::vector<std::string> words = words_;
    const auto tell = [&](uint32_t disk, const Place& place) {
        const uint64_t sum = Sum(machine_.FindDisk(disk)->ReadBytes(place.start, place.length));
        words.push_back("disk " + std::to_string(disk) + " " + std::to_string(sum));
    };
    tell(work_, {kOldStart, kOldLength});
    tell(work_, {kFreeStart, kFreeLength});
    for (const Place& place : kInImage) {
        tell(target_, place);
    }
    return words;
}

std::vector<std::string> DiskCourse::Failures() const
{
    std::vector<std::string> failures;
    for (const std::string& word : words_) {
        if (word.find(" -> -") != std::string::npos) {
            failures.push_back(word);
        }
    }
    return failures;
}

void DiskCourse::Say(const std::string& call, int32_t status, const std::string& more)
{
    words_.push_back(call + " -> " + std::to_string(status) + " " + more);
}

void DiskCourse::List(uint32_t disk)
{
    KkPartitionInfo records[8] = {};
    uint32_t count = 0;
    Say("list", api_.listPartitions(disk, records, 8, &count), std::to_string(count));
    for (uint32_t i = 0; i < count && i < 8; ++i) {
        std::ostringstream line;
        line << "  " << records[i].number << ' ' << records[i].startOffset << ' ' << records[i].length << ' '
             << records[i].fileSystemSize << ' ' << machine::Utf8(TEXT_OF(records[i], fileSystemName));
        words_.push_back(line.str());
    }
}

/// The volume of a partition of the disk that is worked on, as callers name it.
std::u16string DiskCourse::DeviceAt(uint64_t start) const
{
    KkPartitionInfo records[8] = {};
    uint32_t count = 0;
    (void)api_.listPartitions(work_, records, 8, &count);
    for (const KkPartitionInfo& record : records) {
        if (record.startOffset == start) {
            return TEXT_OF(record, deviceName);
        }
    }
    return {};
}

std::u16string DiskCourse::PathOf(const std::string& file) const
{
    return WindowsPath(folder_ / file);
}
