#pragma once

#include <deque>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "app.h"

/// The arguments of one call of KkBackup.
struct BackupCall {
    uint32_t disk = 0;
    std::u16string image;
    bool hasPartitionNumbers = false;
    std::vector<uint32_t> partitions;
    uint32_t usedBlocksOnly = 0;
    uint32_t omitRemove = 0;
    uint32_t useSnapshots = 0;
    std::optional<std::string> setId;  ///< none: a null pointer
    uint32_t setIndex = 0;
    uint32_t setCount = 0;
    uint32_t compact = 0;
};

/// What the pretended library answers and has been asked.
struct FakeLibrary {
    std::vector<KkDiskInfo> disks;
    std::vector<KkPartitionInfo> partitions;
    KK_STATUS partitionsStatus = KK_STATUS_SUCCESS;
    KK_STATUS editStatus = KK_STATUS_SUCCESS;  ///< of every call that changes something, but not of KkBackup
    uint64_t createdStart = 0;
    bool isSimulated = true;
    KK_STATUS backupStatus = KK_STATUS_SUCCESS;
    std::optional<BackupResult> backupResult;  ///< none: the record stays untouched
    std::string createdFile;                   ///< a file that KkBackup makes, if any
    ImageInfoRecord imageInfo = {};
    std::vector<ImagePartitionRecord> imagePartitions;
    KK_STATUS inspectStatus = KK_STATUS_SUCCESS;
    std::optional<uint32_t> mountedDisk = 5;  ///< none: the number stays untouched
    std::u16string diskImage;                 ///< the image behind every disk; empty: none
    std::string deletedFile;                  ///< a file that KkDiscardOverlay deletes, if any

    std::vector<uint32_t> listedDisks;
    std::vector<std::string> inspectedImages;
    std::vector<std::string> edits;  ///< the calls that change something, "KkDeletePartition(0, 1048576)"
    std::vector<BackupCall> backups;
    std::vector<std::string> openedDisks;
    std::string openedDll;
    bool openedForWriting = false;
    int openCount = 0;
};

/// Copies text into a field of a packed record, which may lie at an odd address, without a terminator.
void SetText(void* field, std::u16string_view text);

/// A path in the folder for temporary files, where no other run of these tests puts anything.
std::string PathOfThisTest(const std::string& ending);

/// A partition without anything but a place.
KkPartitionInfo PartitionAt(uint64_t start, uint64_t length);

/// A partition of an image without type and name.
ImagePartitionRecord ImagePartitionAt(uint32_t number, uint64_t offset, uint64_t length);

/// Runs command lines against the pretended library.
class CommandLineTest : public testing::Test {
protected:
    CommandLineTest();
    ~CommandLineTest() override;

    /// Returns the exit code; `out` and `err` then hold what was printed.
    int Run(const std::vector<std::string>& arguments);

    FakeLibrary library;
    std::deque<std::string> input;  ///< lines of standard input that nobody has read yet
    bool inputIsTerminal = false;
    bool errorIsTerminal = false;
    std::string out;
    std::string err;
};
