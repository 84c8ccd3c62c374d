#include "machine/storage.h"

#include <fstream>

#include "machine/host_tools.h"
#include "tests/machine/native_calls.h"

namespace machine {
namespace {

TEST(StorageTest, MemoryExistsOnlyWhereItWasWritten)
{
    MemoryStorage storage(1ull << 40);
    std::vector<uint8_t> bytes(100);

    ASSERT_TRUE(storage.Write((1ull << 39) - 50, std::vector<uint8_t>(100, 3)));
    ASSERT_TRUE(storage.Read((1ull << 39) - 51, bytes));

    EXPECT_EQ(bytes[0], 0);
    EXPECT_EQ(bytes[1], 3);
    EXPECT_EQ(bytes[99], 3);
    EXPECT_EQ(storage.AllocatedBytes(), 128 * kKiB);
}

TEST(StorageTest, NothingReachesPastTheEnd)
{
    MemoryStorage memory(1000);
    const TemporaryFile host(1000);
    FileStorage file(host.Path());
    std::vector<uint8_t> bytes(10);

    for (Storage* const storage : {static_cast<Storage*>(&memory), static_cast<Storage*>(&file)}) {
        EXPECT_EQ(storage->Size(), 1000u);
        EXPECT_TRUE(storage->Write(990, bytes));
        EXPECT_FALSE(storage->Write(991, bytes));
        EXPECT_FALSE(storage->Read(991, bytes));
        EXPECT_FALSE(storage->Read(UINT64_MAX - 5, bytes));
        EXPECT_TRUE(storage->Flush());
    }
    EXPECT_THROW(FileStorage("/nowhere/at/all"), std::system_error);
}

TEST(StorageTest, FilesComeInAndGoOut)
{
    TemporaryFile source(3 * kMiB);
    FileStorage(source.Path()).Write(kMiB + 5, std::vector<uint8_t>(10, 4));
    const TemporaryFile target;
    MemoryStorage storage(8 * kMiB);

    ImportHostFile(storage, 2 * kMiB, source.Path());
    ExportHostFile(storage, 2 * kMiB, 3 * kMiB, target.Path());

    EXPECT_LE(storage.AllocatedBytes(), 64 * kKiB);
    EXPECT_EQ(RunTool({"cmp", source.Path(), target.Path()}).exitCode, 0);
}

TEST(StorageTest, StoragesKnowWhereTheirDataMayLie)
{
    MemoryStorage memory(1ull << 40);
    const TemporaryFile host(1ull << 40);
    FileStorage file(host.Path());
    const uint64_t place = 1ull << 39;

    for (Storage* const storage : {static_cast<Storage*>(&memory), static_cast<Storage*>(&file)}) {
        EXPECT_TRUE(storage->DataIn(0, storage->Size()).empty());
        storage->Write(place, std::vector<uint8_t>(100, 1));
        const std::vector<Stretch> all = storage->DataIn(0, storage->Size());
        ASSERT_EQ(all.size(), 1u);
        EXPECT_EQ(all[0].offset, place);
        EXPECT_LE(all[0].length, 64 * kKiB);
        const std::vector<Stretch> part = storage->DataIn(place + 10, 20);
        ASSERT_EQ(part.size(), 1u);
        EXPECT_EQ(part[0].offset, place + 10);
        EXPECT_EQ(part[0].length, 20u);
        EXPECT_TRUE(storage->DataIn(0, place).empty());
        for (uint64_t i = 1; i <= 10; ++i) {
            storage->Write(place - i * 7 % 11 * kMiB, std::vector<uint8_t>(100, 1));
        }
        const std::vector<Stretch> more = storage->DataIn(0, storage->Size());
        ASSERT_EQ(more.size(), 11u);
        for (uint64_t i = 0; i <= 10; ++i) {
            EXPECT_EQ(more[i].offset, place - (10 - i) * kMiB);
        }
    }
}

TEST(StorageTest, AnExportPastTheEndIsRefused)
{
    MemoryStorage storage(kMiB);
    const TemporaryFile target;

    EXPECT_THROW(ExportHostFile(storage, kMiB - 512, 1024, target.Path()), std::runtime_error);
}

TEST(StorageTest, AVolumeIsFormattedWithFilesInIt)
{
    const TemporaryFile content;
    std::ofstream(content.Path()) << "the words in the file";
    MemoryStorage storage(64 * kMiB);

    FormatRegion(storage, 512, kMiB, 32 * kMiB, FileSystem::Ntfs,
                 {.clusterSize = 2048, .label = "Words", .files = {{content.Path(), "words.txt"}}});

    const TemporaryFile volume;
    ExportHostFile(storage, kMiB, 32 * kMiB, volume.Path());
    EXPECT_NE(RunTool({"ntfscat", volume.Path(), "words.txt"}).text.find("the words in the file"), std::string::npos);
    EXPECT_NE(RunTool({"ntfsinfo", "-m", volume.Path()}).text.find("Cluster Size: 2048"), std::string::npos);
}

}  // namespace
}  // namespace machine
