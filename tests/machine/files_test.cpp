#include <filesystem>
#include <fstream>

#include "machine/text.h"
#include "tests/machine/native_calls.h"

namespace machine {
namespace {

const std::vector<uint8_t> kHello = {'h', 'e', 'l', 'l', 'o'};

/// A mapped drive T: on a folder of its own.
class FilesTest : public MachineTest {
protected:
    FilesTest()
    {
        std::filesystem::create_directories(folder / "sub");
        machine.MapDrive(u'T', folder.string());
    }
    ~FilesTest() override { std::filesystem::remove_all(folder); }

    void Put(const std::string& name, const std::string& text) const { std::ofstream(folder / name) << text; }
    Status StatusOf(const std::u16string& name, const OpenHow& how = {}) const
    {
        return Handle(name, how).created.status;
    }

    std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("machine-files-" + std::to_string(getpid()));
};

TEST_F(FilesTest, AFileReadsToItsEndAndNotBeyond)
{
    Put("a", "0123456789");
    const Handle file(u"\\??\\T:\\a");

    const Outcome across = file.Read(8, 4);
    const Outcome beyond = file.Read(10, 4);

    EXPECT_EQ(across.status, kSuccess);
    EXPECT_EQ(across.information, 2u);
    EXPECT_EQ(beyond.status, kEndOfFile);
    EXPECT_EQ(beyond.information, 0u);
    EXPECT_EQ(file.Read(0, 0).status, kSuccess);
    EXPECT_EQ(file.Read(-1, 4).status, kInvalidParameter);
}

TEST_F(FilesTest, StandardInformationTellsTheSizeAndNeedsItsRoom)
{
    Put("a", "0123456789");
    const Handle file(u"\\??\\T:\\a");

    EXPECT_EQ(file.QueryFile(24).As<kk::FileStandardInformation>().endOfFile, 10);
    EXPECT_EQ(file.QueryFile(23).status, kInfoLengthMismatch);
    EXPECT_EQ(file.QueryFile(24, 77).status, kInvalidInfoClass);
}

TEST_F(FilesTest, DispositionsCreateOverwriteAndRefuse)
{
    const std::u16string name = u"\\??\\T:\\new";
    const auto information = [&](uint32_t disposition) {
        const Handle file(name, {.access = kk::kFileGenericWrite, .disposition = disposition});
        return file.created.status == kSuccess ? file.created.information : UINT64_MAX;
    };

    EXPECT_EQ(StatusOf(name), kObjectNameNotFound);
    EXPECT_EQ(information(kk::kFileOverwriteIf), kInformationCreated);
    Put("new", "text");
    EXPECT_EQ(information(kk::kFileOpen), kInformationOpened);
    EXPECT_EQ(information(kFileOpenIf), kInformationOpened);
    EXPECT_EQ(StatusOf(name, {.disposition = kFileCreate}), kObjectNameCollision);
    EXPECT_EQ(std::filesystem::file_size(folder / "new"), 4u);
    EXPECT_EQ(information(kk::kFileOverwriteIf), kInformationOverwritten);
    EXPECT_EQ(std::filesystem::file_size(folder / "new"), 0u);
}

TEST_F(FilesTest, NamesFailTheWayTheyAreWrong)
{
    EXPECT_EQ(StatusOf(u"\\??\\T:\\missing"), kObjectNameNotFound);
    EXPECT_EQ(StatusOf(u"\\??\\T:\\missing\\file"), kObjectPathNotFound);
    EXPECT_EQ(StatusOf(u"\\??\\Q:\\file"), kObjectPathNotFound);
    EXPECT_EQ(StatusOf(u"\\??\\T:\\sub"), kFileIsADirectory);
    EXPECT_EQ(StatusOf(u"\\??\\T:\\"), kFileIsADirectory);
    EXPECT_EQ(StatusOf(u"\\\\server\\share\\x"), kObjectNameInvalid);
    EXPECT_EQ(StatusOf(u"T:\\a"), kObjectPathSyntaxBad);
    EXPECT_EQ(StatusOf(u"\\??\\"), kObjectNameInvalid);
    EXPECT_EQ(StatusOf(u"\\??\\PhysicalDrive7"), kObjectNameNotFound);
    EXPECT_EQ(StatusOf(u"\\Device\\HarddiskVolume7"), kObjectNameNotFound);
}

TEST_F(FilesTest, DeviceNamesFoldCaseOnlyOnDemand)
{
    machine.AddDisk(kMiB);

    EXPECT_EQ(StatusOf(u"\\??\\physicaldrive0"), kSuccess);
    EXPECT_EQ(StatusOf(u"\\??\\physicaldrive0", {.attributes = 0}), kObjectNameNotFound);
    EXPECT_EQ(StatusOf(u"\\??\\GLOBALROOT\\??\\PhysicalDrive0"), kSuccess);
    EXPECT_EQ(StatusOf(u"\\DosDevices\\PhysicalDrive0"), kSuccess);
}

TEST_F(FilesTest, AHandleMayDoOnlyWhatItWasOpenedFor)
{
    Put("a", "text");
    const Handle reader(u"\\??\\T:\\a");
    const Handle writer(u"\\??\\T:\\a", {.access = kk::kFileGenericWrite});

    EXPECT_EQ(reader.Write(0, kHello).status, kAccessDenied);
    EXPECT_EQ(reader.Flush(), kAccessDenied);
    EXPECT_EQ(writer.Read(0, 4).status, kAccessDenied);
    EXPECT_EQ(writer.Write(2, kHello).information, 5u);
    EXPECT_EQ(writer.Flush(), kSuccess);
    EXPECT_EQ(std::filesystem::file_size(folder / "a"), 7u);
}

TEST_F(FilesTest, OneWriterWhoSharesReadingKeepsOtherWritersOut)
{
    const std::u16string name = u"\\??\\T:\\manifest";
    Handle writer(name, {.access = kk::kFileGenericWrite, .share = kk::kFileShareRead, .disposition = 5});
    ASSERT_EQ(writer.created.status, kSuccess);

    EXPECT_EQ(StatusOf(name), kSuccess);
    EXPECT_EQ(StatusOf(name, {.share = kk::kFileShareRead}), kSharingViolation);
    EXPECT_EQ(StatusOf(name, {.access = kk::kFileGenericWrite}), kSharingViolation);
    writer.Close();
    EXPECT_EQ(StatusOf(name, {.access = kk::kFileGenericWrite}), kSuccess);
}

TEST_F(FilesTest, DeleteOnCloseDeletesAtTheLastCloseIfOthersAgree)
{
    Put("overlay", "text");
    const std::u16string name = u"\\??\\T:\\overlay";
    const OpenHow toDelete = {.access = kDelete | kSynchronize, .share = 7, .options = 0x1060};

    Handle reader(name);
    EXPECT_EQ(StatusOf(name, toDelete), kSharingViolation);
    reader.Close();
    EXPECT_EQ(StatusOf(name, toDelete), kSuccess);
    EXPECT_FALSE(std::filesystem::exists(folder / "overlay"));
}

TEST_F(FilesTest, DeletingWhatIsMissingOrHeldFailsAndLeavesAllAsItWas)
{
    Put("image", "text");
    const OpenHow toDelete = {.access = kDelete | kSynchronize, .share = 7, .options = 0x1060};

    EXPECT_EQ(StatusOf(u"\\??\\T:\\missing", toDelete), kObjectNameNotFound);
    EXPECT_EQ(StatusOf(u"\\??\\T:\\missing\\file", toDelete), kObjectPathNotFound);
    {
        const auto hold = machine.drives.shares.TryHold((folder / "image").string(), kFileReadData, kk::kFileShareRead);
        EXPECT_EQ(StatusOf(u"\\??\\T:\\image", toDelete), kSharingViolation);
    }
    EXPECT_TRUE(std::filesystem::exists(folder / "image"));
}

TEST_F(FilesTest, ADiskOpensForItsAttributesAlone)
{
    machine.AddDisk(kMiB);
    const Handle disk(u"\\??\\PhysicalDrive0", {.access = 0x100080, .options = 0x60});

    EXPECT_EQ(disk.created.status, kSuccess);
    EXPECT_EQ(disk.Read(0, 512).status, kAccessDenied);
}

TEST_F(FilesTest, AServiceCanHoldAFileLikeAnOpenHandle)
{
    Put("image", "text");
    const std::unique_ptr<ShareTable::Hold> hold =
        machine.drives.shares.TryHold((folder / "image").string(), kFileReadData | kFileWriteData, 0);

    EXPECT_EQ(StatusOf(u"\\??\\T:\\image"), kSharingViolation);
}

TEST_F(FilesTest, TheHostsRootIsDriveZ)
{
    Put("a", "text");

    const std::u16string path = HostDrives::WindowsPath((folder / "a").string());

    EXPECT_EQ(machine.drives.HostPath(path), (folder / "a").string());
    EXPECT_EQ(Handle(u"\\??\\" + path).Read(0, 4).information, 4u);
}

TEST_F(FilesTest, AStatusBlockThatWasNotZeroedIsABreach)
{
    Put("a", "text");
    const Handle file(u"\\??\\T:\\a");
    kk::IoStatusBlock block = {};
    block.information = 99;
    const int64_t offset = 4;
    uint8_t byte = 0;

    EXPECT_EQ(NtReadFile(file.value, nullptr, nullptr, nullptr, &block, &byte, 1, &offset, nullptr), kEndOfFile);

    EXPECT_EQ(block.information, 99u) << "errors leave the block alone";
    EXPECT_EQ(TakeBreaches().size(), 1u);
}

TEST_F(FilesTest, ClosingTwiceAndForgettingToCloseAreBreaches)
{
    Put("a", "text");
    Handle file(u"\\??\\T:\\a");
    const kk::NtHandle first = file.value;
    EXPECT_EQ(machine.Imbalances(), std::vector<std::string>{"a handle of \\??\\T:\\a was not closed"});
    file.Close();

    EXPECT_EQ(NtClose(first), kInvalidHandle);
    EXPECT_EQ(TakeBreaches().size(), 1u);
    EXPECT_TRUE(machine.Imbalances().empty());
    EXPECT_NE(Handle(u"\\??\\T:\\a").value, first);
}

}  // namespace
}  // namespace machine
