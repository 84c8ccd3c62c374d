#include "fake_kit.h"

#include <cstring>
#include <filesystem>
#include <fstream>

#include <unistd.h>

#include "text.h"

namespace {

FakeLibrary* current = nullptr;

template <typename Record>
void Answer(const std::vector<Record>& all, Record* records, uint32_t capacity, uint32_t* count)
{
    *count = static_cast<uint32_t>(all.size());
    for (uint32_t i = 0; records != nullptr && i < capacity && i < all.size(); ++i) {
        records[i] = all[i];
    }
}

KK_STATUS KK_CALL ListDisks(KkDiskInfo* records, uint32_t capacity, uint32_t* count)
{
    Answer(current->disks, records, capacity, count);
    return KK_STATUS_SUCCESS;
}

KK_STATUS KK_CALL ListPartitions(uint32_t disk, KkPartitionInfo* records, uint32_t capacity, uint32_t* count)
{
    current->listedDisks.push_back(disk);
    *count = 0;
    if (current->partitionsStatus >= 0) {
        Answer(current->partitions, records, capacity, count);
    }
    return current->partitionsStatus;
}

std::string ToText(uint64_t number)
{
    return std::to_string(number);
}

std::string ToText(const char16_t* text)
{
    return text != nullptr ? "'" + kkctl::ToUtf8(text) + "'" : "null";
}

template <typename... Arguments>
KK_STATUS Edit(const std::string& function, Arguments... arguments)
{
    std::string list;
    ((list += (list.empty() ? "" : ", ") + ToText(arguments)), ...);
    current->edits.push_back(function + "(" + list + ")");
    return current->editStatus;
}

KK_STATUS KK_CALL SetDriveLetter(uint32_t disk, uint64_t start, char16_t letter)
{
    return Edit("KkSetDriveLetter", disk, start, letter);
}

KK_STATUS KK_CALL AddMountPoint(uint32_t disk, uint64_t start, const char16_t* directory)
{
    return Edit("KkAddMountPoint", disk, start, directory);
}

KK_STATUS KK_CALL CreatePartition(uint32_t disk, uint64_t regionStart, uint64_t regionLength, uint64_t size,
                                  uint64_t* start)
{
    *start = current->createdStart;
    return Edit("KkCreatePartition", disk, regionStart, regionLength, size);
}

KK_STATUS KK_CALL DeletePartition(uint32_t disk, uint64_t start)
{
    return Edit("KkDeletePartition", disk, start);
}

KK_STATUS KK_CALL ExtendPartition(uint32_t disk, uint64_t start, uint64_t size)
{
    return Edit("KkExtendPartition", disk, start, size);
}

KK_STATUS KK_CALL ShrinkPartition(uint32_t disk, uint64_t start, uint64_t size)
{
    return Edit("KkShrinkPartition", disk, start, size);
}

KK_STATUS KK_CALL FormatPartition(int32_t disk, uint64_t start, const char16_t* fileSystem, const char16_t* label,
                                  int32_t quick)
{
    return Edit("KkFormatPartition", static_cast<uint32_t>(disk), start, fileSystem, label,
                static_cast<uint32_t>(quick));
}

KK_STATUS KK_CALL Reboot()
{
    return Edit("KkReboot");
}

KK_STATUS KK_CALL Backup(uint32_t disk, const char16_t* image, const uint32_t* numbers, uint32_t numberCount,
                         uint32_t usedBlocksOnly, uint32_t omitRemove, uint32_t useSnapshots, const char* setId,
                         uint32_t setIndex, uint32_t setCount, uint32_t compact, BackupResult* result)
{
    BackupCall& call = current->backups.emplace_back();
    call = {.disk = disk,
            .image = image,
            .hasPartitionNumbers = numbers != nullptr,
            .partitions = {numbers, numbers + numberCount},
            .usedBlocksOnly = usedBlocksOnly,
            .omitRemove = omitRemove,
            .useSnapshots = useSnapshots,
            .setId = std::nullopt,
            .setIndex = setIndex,
            .setCount = setCount,
            .compact = compact};
    if (setId != nullptr) {
        call.setId = setId;
    }
    if (!current->createdFile.empty()) {
        std::ofstream(current->createdFile) << "half an image";
    }
    if (current->backupResult) {
        *result = *current->backupResult;
    }
    return current->backupStatus;
}

KK_STATUS KK_CALL InspectImage(const char16_t* image, ImageInfoRecord* info, ImagePartitionRecord* records,
                               uint32_t capacity, uint32_t* count)
{
    current->inspectedImages.push_back(kkctl::ToUtf8(image));
    *count = 0;
    if (current->inspectStatus >= 0) {
        *info = current->imageInfo;
        Answer(current->imagePartitions, records, capacity, count);
    }
    return current->inspectStatus;
}

void AnswerMount(uint32_t* disk)
{
    if (current->mountedDisk) {
        *disk = *current->mountedDisk;
    }
}

KK_STATUS KK_CALL MountImage(const char16_t* image, uint32_t* disk)
{
    AnswerMount(disk);
    return Edit("KkMountImage", image);
}

KK_STATUS KK_CALL UnmountImage(const char16_t* image)
{
    return Edit("KkUnmountImage", image);
}

KK_STATUS KK_CALL QueryDiskImage(uint32_t disk, uint32_t* isImage, char16_t* image, uint32_t imageChars)
{
    *isImage = current->diskImage.empty() ? 0 : 1;
    current->diskImage.copy(image, imageChars);
    return Edit("KkQueryDiskImage", disk);
}

KK_STATUS KK_CALL RestorePartitions(const char16_t* image, const char16_t* target, const uint32_t* numbers,
                                    uint32_t numberCount, int32_t writesTable)
{
    std::string list = numbers == nullptr ? "null" : "";
    for (uint32_t i = 0; i < numberCount; ++i) {
        list += (i > 0 ? " " : "") + std::to_string(numbers[i]);
    }
    const std::u16string wideList(list.begin(), list.end());
    return Edit("KkRestorePartitions", image, target, wideList.c_str(), static_cast<uint32_t>(writesTable));
}

KK_STATUS KK_CALL RestoreToFreeSpace(const char16_t* image, uint32_t partition, uint32_t disk, uint64_t start,
                                     uint64_t length, int32_t keepsSize)
{
    return Edit("KkRestoreToFreeSpace", image, partition, disk, start, length, static_cast<uint32_t>(keepsSize));
}

KK_STATUS KK_CALL RestoreToVolume(const char16_t* image, uint32_t partition, const char16_t* volume, uint32_t extends)
{
    return Edit("KkRestoreToVolume", image, partition, volume, extends);
}

KK_STATUS KK_CALL CloneVolume(const char16_t* source, const char16_t* target, uint32_t extends)
{
    return Edit("KkCloneVolume", source, target, extends);
}

KK_STATUS KK_CALL MountImageOverlay(const char16_t* image, const char16_t* overlay, uint32_t* disk)
{
    AnswerMount(disk);
    return Edit("KkMountImageOverlay", image, overlay);
}

KK_STATUS KK_CALL DiscardOverlay(const char16_t* overlay)
{
    if (!current->deletedFile.empty()) {
        std::filesystem::remove(current->deletedFile);
    }
    return Edit("KkDiscardOverlay", overlay);
}

KK_STATUS KK_CALL RecoverShrinkToFit(const char16_t* image, int32_t partition, uint32_t disk, uint64_t start)
{
    return Edit("KkRecoverShrinkToFit", image, static_cast<uint32_t>(partition), disk, start);
}

class FakeKit : public kkctl::Kit {
public:
    FakeKit()
    {
        kestrelkit::Exports exports;
        exports.listDisks = ListDisks;
        exports.listPartitions = ListPartitions;
        exports.setDriveLetter = SetDriveLetter;
        exports.addMountPoint = AddMountPoint;
        exports.createPartition = CreatePartition;
        exports.deletePartition = DeletePartition;
        exports.extendPartition = ExtendPartition;
        exports.shrinkPartition = ShrinkPartition;
        exports.formatPartition = FormatPartition;
        exports.reboot = Reboot;
        exports.backup = Backup;
        exports.inspectImage = InspectImage;
        exports.mountImage = MountImage;
        exports.unmountImage = UnmountImage;
        exports.queryDiskImage = QueryDiskImage;
        exports.restorePartitions = RestorePartitions;
        exports.restoreToFreeSpace = RestoreToFreeSpace;
        exports.restoreToVolume = RestoreToVolume;
        exports.cloneVolume = CloneVolume;
        exports.mountImageOverlay = MountImageOverlay;
        exports.discardOverlay = DiscardOverlay;
        exports.recoverShrinkToFit = RecoverShrinkToFit;
        calls_ = kestrelkit::Library(exports);
    }

    bool IsSimulated() const override { return current->isSimulated; }

    kkctl::WideString ToLibraryPath(const std::string& path) const override
    {
        if (path == "nowhere") {
            throw kkctl::PathError("no such place");
        }
        return u"Z:\\" + std::u16string(path.begin(), path.end());
    }

    uint64_t ImageBytesWritten(const std::string&) const override { return 3 << 20; }
};

}  // namespace

void SetText(void* field, std::u16string_view text)
{
    std::memcpy(field, text.data(), text.size() * sizeof(char16_t));
}

std::string PathOfThisTest(const std::string& ending)
{
    const char* const name = testing::UnitTest::GetInstance()->current_test_info()->name();
    return testing::TempDir() + "kkctl_" + std::to_string(getpid()) + "_" + name + ending;
}

KkPartitionInfo PartitionAt(uint64_t start, uint64_t length)
{
    KkPartitionInfo partition = {};
    partition.startOffset = start;
    partition.length = length;
    return partition;
}

ImagePartitionRecord ImagePartitionAt(uint32_t number, uint64_t offset, uint64_t length)
{
    ImagePartitionRecord partition = {};
    partition.number = number;
    partition.offset = offset;
    partition.length = length;
    return partition;
}

CommandLineTest::CommandLineTest()
{
    current = &library;
}

CommandLineTest::~CommandLineTest()
{
    current = nullptr;
}

int CommandLineTest::Run(const std::vector<std::string>& arguments)
{
    std::ostringstream outStream;
    std::ostringstream errStream;
    const auto openKit = [this](const kkctl::KitOptions& options) {
        ++library.openCount;
        library.openedDisks = options.disks;
        library.openedDll = options.dll;
        library.openedForWriting = options.writesDisks;
        if (options.dll == "broken.dll") {
            throw kkctl::KitError("cannot load broken.dll");
        }
        return std::make_unique<FakeKit>();
    };
    const auto readLine = [this]() -> std::optional<std::string> {
        if (input.empty()) {
            return std::nullopt;
        }
        const std::string line = input.front();
        input.pop_front();
        return line;
    };
    const int exitCode = kkctl::RunCommandLine(arguments, {.openKit = openKit,
                                                           .readLine = readLine,
                                                           .out = outStream,
                                                           .err = errStream,
                                                           .inputIsTerminal = inputIsTerminal,
                                                           .errorIsTerminal = errorIsTerminal});
    out = outStream.str();
    err = errStream.str();
    return exitCode;
}
