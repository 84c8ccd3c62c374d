#include "kestrelkit/kestrelkit.hpp"

#include <cstring>

#include "machine/memory_virtual_disks.h"
#include "machine/pe_loader.h"
#include "machine/table_builder.h"
#include "machine/virtual_disk_service.h"
#include "support/machine_test.h"
#include "support/shell.h"
#include "support/vhdx_builder.h"

namespace {

using kestrelkit::Disk;
using kestrelkit::Exports;
using kestrelkit::Library;
using kestrelkit::PartitionStyle;

// The wrapper over the library itself, on a machine.

class WrapperTest : public MachineTest {
protected:
    std::shared_ptr<machine::MemoryVirtualDisks> images = std::make_shared<machine::MemoryVirtualDisks>();
    machine::VirtualDiskService& virtualDisks = machine::InstallVirtualDiskService(machine, images);
    Library kit = Library(Exports::Linked());
};

TEST_F(WrapperTest, ListsDisksWithoutGapsInTheirRecords)
{
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{.start = kMiB, .length = 8 * kMiB}}});
    machine.AddDisk(16 * kMiB, {.sectorSize = 4096, .number = 5});

    const auto disks = kit.ListDisks();

    ASSERT_TRUE(disks);
    ASSERT_EQ(disks->size(), 2u);
    EXPECT_EQ(disks->at(0).size, 64 * kMiB);
    EXPECT_EQ(disks->at(0).style, PartitionStyle::Gpt);
    EXPECT_EQ(disks->at(0).partitionCount, 1u);
    EXPECT_EQ(disks->at(1).number, 5u);
    EXPECT_EQ(disks->at(1).sectorSize, 4096u);
    EXPECT_EQ(disks->at(1).style, PartitionStyle::Raw);
}

TEST_F(WrapperTest, FindsNoDisksOnAMachineWithoutAny)
{
    const auto disks = kit.ListDisks();

    EXPECT_TRUE(disks);
    EXPECT_TRUE(disks->empty());
}

TEST_F(WrapperTest, TakesTextOutOfTheRecordsOfPartitions)
{
    const std::u16string longestName(36, u'n');
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{.start = kMiB, .length = 8 * kMiB, .name = longestName},
                                                   {.start = 16 * kMiB, .length = 8 * kMiB, .name = u"Data"}}});
    machine.AssignLetter(*machine.FindVolume(0, 16 * kMiB), u'S');

    const auto partitions = kit.ListPartitions(0);

    ASSERT_TRUE(partitions);
    ASSERT_EQ(partitions->size(), 2u);
    EXPECT_EQ(partitions->at(0).name, longestName);
    EXPECT_EQ(partitions->at(0).driveLetter, u"");
    EXPECT_EQ(partitions->at(1).name, u"Data");
    EXPECT_EQ(partitions->at(1).startOffset, 16 * kMiB);
    EXPECT_EQ(partitions->at(1).length, 8 * kMiB);
    EXPECT_EQ(partitions->at(1).driveLetter, u"S:");
    EXPECT_EQ(partitions->at(1).deviceName, u"\\Device\\HarddiskVolume2");
    EXPECT_TRUE(partitions->at(1).volumePath.starts_with(u"\\\\?\\Volume{")) << "a path of the mount manager";
}

TEST_F(WrapperTest, CarriesTheStatusOfAFailure)
{
    const auto partitions = kit.ListPartitions(7);

    EXPECT_FALSE(partitions);
    EXPECT_TRUE(partitions->empty());
    EXPECT_TRUE(partitions.status.Failed());
    EXPECT_EQ(partitions.status.code, Status(0xC0000034));
    EXPECT_EQ(partitions.status.Text(), "0xC0000034");
}

TEST_F(WrapperTest, CreatesAPartitionInTheFreeRegionThatItFinds)
{
    machine.AddDisk(64 * kMiB).Gpt({.partitions = {{.start = kMiB, .length = 8 * kMiB}}});
    const auto regions = kestrelkit::FreeRegions(kit.ListDisks()->at(0), *kit.ListPartitions(0));
    ASSERT_EQ(regions.size(), 1u);

    const auto start = kit.CreatePartition(0, regions[0], 4 * kMiB);

    ASSERT_TRUE(start);
    EXPECT_EQ(*start, 9 * kMiB);
    EXPECT_EQ(kit.ListPartitions(0)->size(), 2u);
}

/// With an image of the first disk in memory.
class WrapperImageTest : public WrapperTest {
protected:
    WrapperImageTest()
    {
        machine.AddDisk(64 * kMiB).Gpt(
            {.partitions = {{.start = kMiB, .length = 8 * kMiB}, {.start = 16 * kMiB, .length = 4 * kMiB}}});
    }

    std::u16string ImagePath() const { return WindowsPath(folder / "x.vhdx"); }
    kestrelkit::Result<kestrelkit::Backup> BackUp(kestrelkit::PartitionNumbers partitions = std::nullopt)
    {
        return kit.BackUp(0, ImagePath(), {.partitions = partitions, .useSnapshots = false});
    }

    TemporaryFolder folder;
};

TEST_F(WrapperImageTest, BacksUpAllPartitionsUnlessSomeAreChosen)
{
    const auto all = BackUp();
    EXPECT_EQ(all->partitionsCopied, 2u);
    EXPECT_EQ(all->liveWholeCopies, 2u);
    EXPECT_EQ(all->bytesCopied, 12 * kMiB);
    EXPECT_FALSE(all->snapshotsUsed);
    const uint32_t second[] = {2};
    images->Remove(folder / "x.vhdx");
    EXPECT_EQ(BackUp(second)->partitionsCopied, 1u);
}

TEST_F(WrapperImageTest, RefusesToTakeAnEmptyChoiceForAllPartitions)
{
    const kestrelkit::PartitionNumbers none = std::span<const uint32_t>();

    EXPECT_EQ(BackUp(none).status.code, KK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(kit.RestorePartitions(ImagePath(), u"\\\\.\\PhysicalDrive0", none, true).code,
              KK_STATUS_INVALID_PARAMETER);

    EXPECT_TRUE(machine.journal.Records().empty());
}

TEST_F(WrapperImageTest, KnowsACompleteImageFromOneThatFailedHalfWay)
{
    virtualDisks.behaviour.detachFailure = 5;
    const auto notDetached = BackUp();
    EXPECT_FALSE(notDetached);
    EXPECT_TRUE(notDetached->isComplete);
    EXPECT_EQ(notDetached->partitionsCopied, 2u);

    const auto existing = BackUp();
    EXPECT_EQ(existing.status.code, KK_STATUS_UNSUCCESSFUL);
    EXPECT_FALSE(existing->isComplete);
    EXPECT_EQ(existing->partitionsCopied, 0u);
}

TEST_F(WrapperImageTest, TellsWhichDiskShowsAnImageAndWhichImageADiskShows)
{
    ASSERT_TRUE(BackUp());

    const auto mounted = kit.MountImage(ImagePath());
    ASSERT_TRUE(mounted);
    EXPECT_EQ(*mounted, 1u);
    EXPECT_TRUE(kit.QueryDiskImage(1)->value_or(u"").ends_with(u"\\x.vhdx"));
    EXPECT_EQ(*kit.QueryDiskImage(0), std::nullopt);
    EXPECT_FALSE(kit.UnmountImage(ImagePath()).Failed());

    const auto missing = kit.MountImage(u"Z:\\none.vhdx");
    EXPECT_EQ(missing.status.code, KK_E_FILE_NOT_FOUND);
    EXPECT_EQ(*missing, std::nullopt);
}

TEST_F(WrapperTest, TakesTextOutOfTheRecordsOfImages)
{
    machine::MemoryStorage disk(64 * kMiB);
    machine::WriteGptTable(disk, 512,
                           {.partitions = {{.start = kMiB, .length = 8 * kMiB, .name = u"First", .slot = 3}}});
    const TemporaryFolder folder;
    const std::filesystem::path file = folder / "x.vhdx";
    VhdxBuilder(disk.Size()).Data(disk).Save(file);

    const auto image = kit.InspectImage(WindowsPath(file));

    ASSERT_TRUE(image);
    EXPECT_EQ(image->virtualSize, 64 * kMiB);
    EXPECT_EQ(image->logicalSectorSize, 512u);
    EXPECT_EQ(image->style, PartitionStyle::Gpt);
    EXPECT_EQ(std::memcmp(image->diskGuid.data(), &machine::kSampleDiskId, 16), 0);
    ASSERT_EQ(image->partitions.size(), 1u);
    EXPECT_EQ(image->partitions[0].number, 4u);
    EXPECT_EQ(image->partitions[0].offset, kMiB);
    EXPECT_EQ(image->partitions[0].length, 8 * kMiB);
    EXPECT_EQ(image->partitions[0].name, u"First");
    EXPECT_EQ(std::memcmp(image->partitions[0].typeGuid.data(), &machine::kBasicDataType, 16), 0);
}

TEST_F(WrapperTest, FindsTheExportsOfADllByTheirNames)
{
    const machine::LoadedDll dll(KK_DLL);
    machine.AddDisk(8 * kMiB);

    const auto exports = Exports::Found([&](const char* name) { return dll.Export<void*>(name); });

    ASSERT_TRUE(exports);
    EXPECT_EQ(Library(*exports).ListDisks()->size(), 1u);
    EXPECT_EQ(Exports::Found([&](const char* name) {
                  return std::strcmp(name, "KkRecoverShrinkToFit") == 0 ? nullptr : dll.Export<void*>(name);
              }).has_value(),
              false)
        << "one is missing";
}

// The wrapper over functions that do nothing but write their arguments down.

std::string& LastCall()
{
    static std::string call;
    return call;
}

template <typename T>
std::string ToText(T number)
{
    return std::to_string(number);
}
template <typename T>
std::string ToText(T* pointer)
{
    return pointer == nullptr ? "null" : "out";
}
std::string ToText(const KkWideChar* text)
{
    return std::string(text, text + std::u16string_view(text).size());
}
std::string ToText(const char* text)
{
    return text;
}
std::string ToText(const uint32_t* numbers)
{
    return numbers == nullptr ? "null" : "[" + std::to_string(numbers[0]) + "...";
}

template <typename Function>
struct Scribe;

template <typename R, typename... A>
struct Scribe<R(KK_CALL*)(A...)> {
    static R KK_CALL Call(A... arguments)
    {
        LastCall().clear();
        ((LastCall() += ToText(arguments) + " "), ...);
        return R{7};
    }
};

/// All exports are scribes, each with the arguments of its own.
Exports Scribes()
{
    Exports exports;
    const auto fill = [](auto&... slots) { ((slots = &Scribe<std::remove_reference_t<decltype(slots)>>::Call), ...); };
    fill(exports.setDriveLetter, exports.addMountPoint, exports.createPartition, exports.deletePartition,
         exports.extendPartition, exports.shrinkPartition, exports.formatPartition, exports.reboot, exports.backup,
         exports.mountImage, exports.unmountImage, exports.restorePartitions, exports.restoreToFreeSpace,
         exports.restoreToVolume, exports.cloneVolume, exports.mountImageOverlay, exports.discardOverlay,
         exports.recoverShrinkToFit);
    return exports;
}

/// What the export heard, and whether its status came back.
template <typename Call>
std::string Heard(Call call)
{
    const Library library(Scribes());
    const auto answer = call(library);
    KK_STATUS status = 0;
    if constexpr (requires { answer.code; }) {
        status = answer.code;
    } else {
        status = answer.status.code;
    }
    EXPECT_EQ(status, 7);
    return LastCall();
}

TEST(WrapperArgumentsTest, OfEditsArriveInTheirOrder)
{
    EXPECT_EQ(Heard([](const Library& kit) { return kit.SetDriveLetter(1, 2, u'S'); }), "1 2 83 ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.SetDriveLetter(1, 2, std::nullopt); }), "1 2 0 ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.AddMountPoint(1, 2, u"dir"); }), "1 2 dir ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.CreatePartition(1, {2, 3}, 4); }), "1 2 3 4 out ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.CreatePartition(1, {2, 3}); }), "1 2 3 0 out ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.DeletePartition(1, 2); }), "1 2 ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.ExtendPartition(1, 2, 3); }), "1 2 3 ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.ExtendPartition(1, 2); }), "1 2 0 ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.ShrinkPartition(1, 2, 3); }), "1 2 3 ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.FormatPartition(1, 2, u"FAT32", u"label"); }),
              "1 2 FAT32 label 1 ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.FormatPartition(1, 2, u"NTFS", u"", false); }), "1 2 NTFS  0 ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.Reboot(); }), "");
}

TEST(WrapperArgumentsTest, OfBackupsArriveInTheirOrder)
{
    const uint32_t numbers[] = {9, 8};
    EXPECT_EQ(Heard([&](const Library& kit) {
                  return kit.BackUp(1, u"image",
                                    {.partitions = numbers,
                                     .usedBlocksOnly = false,
                                     .removeOmitted = true,
                                     .useSnapshots = false,
                                     .compact = false,
                                     .setId = "set",
                                     .setDiskIndex = 5,
                                     .setDiskCount = 6});
              }),
              "1 image [9... 2 0 1 0 set 5 6 0 out ");
    EXPECT_EQ(
        Heard([](const Library& kit) { return kit.BackUp(1, u"image", {.useSnapshots = false, .compact = true}); }),
        "1 image null 0 1 0 0  0 1 1 out ");
    EXPECT_EQ(Heard([](const Library& kit) {
                  return kit.BackUp(1, u"image", {.usedBlocksOnly = false, .useSnapshots = true});
              }),
              "1 image null 0 0 0 1  0 1 0 out ");
}

TEST(WrapperArgumentsTest, OfImagesArriveInTheirOrder)
{
    const uint32_t numbers[] = {9, 8};
    EXPECT_EQ(Heard([](const Library& kit) { return kit.MountImage(u"image"); }), "image out ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.UnmountImage(u"image"); }), "image ");
    EXPECT_EQ(Heard([&](const Library& kit) { return kit.RestorePartitions(u"image", u"disk", numbers, true); }),
              "image disk [9... 2 1 ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.RestorePartitions(u"i", u"d", std::nullopt, false); }),
              "i d null 0 0 ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.RestoreToFreeSpace(u"image", 1, 2, {3, 4}, true); }),
              "image 1 2 3 4 1 ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.RestoreToVolume(u"image", 1, u"volume", true); }),
              "image 1 volume 1 ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.CloneVolume(u"from", u"to", true); }), "from to 1 ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.MountImageOverlay(u"parent", u"over"); }), "parent over out ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.DiscardOverlay(u"over"); }), "over ");
    EXPECT_EQ(Heard([](const Library& kit) { return kit.RecoverShrinkToFit(u"image", 1, 2, 3); }), "image 1 2 3 ");
}

/// A list that has one disk more whenever it is asked.
KK_STATUS KK_CALL ListGrowingDisks(KkDiskInfo* records, uint32_t capacity, uint32_t* count)
{
    static uint32_t disks = 0;
    ++disks;
    for (uint32_t i = 0; records != nullptr && i < std::min(disks, capacity); ++i) {
        EXPECT_EQ(records[i].notWritten4, 0u) << "records are handed over zeroed";
        records[i].notWritten4 = 1;
        records[i].number = i + 1;
    }
    *count = disks;
    return KK_STATUS_SUCCESS;
}

TEST(WrapperListTest, AsksAgainWhenThereAreMoreThanThereWereButNotForEver)
{
    Exports exports;
    exports.listDisks = &ListGrowingDisks;

    const auto disks = Library(exports).ListDisks();

    ASSERT_EQ(disks->size(), 4u);
    for (const Disk& disk : *disks) {
        EXPECT_NE(disk.number, 0u) << "no record is handed out that was not written";
    }
}

}  // namespace
