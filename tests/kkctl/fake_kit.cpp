#include "fake_kit.h"

#include <cstring>
#include <fstream>

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

class FakeKit : public kkctl::Kit {
public:
    FakeKit()
    {
        exports_.listDisks = ListDisks;
        exports_.listPartitions = ListPartitions;
        exports_.backup = Backup;
    }

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
        if (options.dll == "broken.dll") {
            throw kkctl::KitError("cannot load broken.dll");
        }
        return std::make_unique<FakeKit>();
    };
    const int exitCode = kkctl::RunCommandLine(arguments, {openKit, outStream, errStream, errorIsTerminal});
    out = outStream.str();
    err = errStream.str();
    return exitCode;
}
