#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "fake_kit.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// Inspecting images, mounting them and ending that.
class ImageCommandsTest : public CommandLineTest {
protected:
    ~ImageCommandsTest() override
    {
        std::filesystem::remove(file);
        std::filesystem::remove(file + ".json");
    }

    std::string Json() const { return nlohmann::ordered_json::parse(out).dump(); }

    /// A path where no file is.
    std::string file = PathOfThisTest(".avhdx");
};

class InspectTest : public ImageCommandsTest {
protected:
    InspectTest()
    {
        library.imageInfo = {.virtualSize = 512ull << 20,
                             .logicalSectorSize = 4096,
                             .blockSize = 32 << 20,
                             .diskGuid = {0x28, 0x73, 0x2A, 0xC1, 0x1F, 0xF8, 0xD2, 0x11, 0xBA, 0x4B, 0x00, 0xA0, 0xC9,
                                          0x3E, 0xC9, 0x3B},
                             .partitionCount = 2,
                             .partitionStyle = KK_PARTITION_STYLE_GPT};
        ImagePartitionRecord efi = ImagePartitionAt(1, 1 << 20, 100 << 20);
        std::copy(std::begin(library.imageInfo.diskGuid), std::end(library.imageInfo.diskGuid), efi.typeGuid);
        SetText(efi.name, u"EFI system partition");
        ImagePartitionRecord other = ImagePartitionAt(7, 128 << 20, 3ull << 40);
        other.typeGuid[15] = 1;
        SetText(other.name, u"exactly thirty-six units: \u00E4\u00F6\u00FC 789ABC");
        library.imagePartitions = {efi, other};
    }

    void MakeMbr()
    {
        library.imageInfo.partitionStyle = KK_PARTITION_STYLE_MBR;
        library.imagePartitions = {ImagePartitionAt(2, 1 << 20, 8 << 20)};
        SetText(library.imagePartitions[0].name, u"NTFS / exFAT");
    }
};

TEST_F(InspectTest, TheDiskAndItsPartitionsAreShown)
{
    EXPECT_EQ(Run({"inspect", "x.vhdx"}), 0);

    EXPECT_EQ(out, "Image       x.vhdx\n"
                   "Disk size   512.0 MiB (536870912 bytes)\n"
                   "Sector      4096 bytes\n"
                   "Block       32.0 MiB\n"
                   "Style       GPT\n"
                   "Disk GUID   c12a7328-f81f-11d2-ba4b-00a0c93ec93b\n"
                   "\n"
                   "NO      START         LENGTH       SIZE  TYPE                                  NAME\n"
                   " 1    1048576      104857600  100.0 MiB  EFI system                            "
                   "EFI system partition\n"
                   " 7  134217728  3298534883328    3.0 TiB  00000000-0000-0000-0000-000000000001  "
                   "exactly thirty-six units: \u00E4\u00F6\u00FC 789ABC\n");
    EXPECT_EQ(library.inspectedImages.back(), "Z:\\x.vhdx");
    EXPECT_FALSE(library.openedForWriting);
}

TEST_F(InspectTest, JsonHasEveryField)
{
    library.imagePartitions.pop_back();

    EXPECT_EQ(Run({"inspect", "x.vhdx", "--json"}), 0);

    EXPECT_EQ(Json(),
              R"({"image":"x.vhdx","size":536870912,"sectorSize":4096,"blockSize":33554432,"partitionStyle":"GPT",)"
              R"("diskGuid":"c12a7328-f81f-11d2-ba4b-00a0c93ec93b","partitions":[{"number":1,"startOffset":1048576,)"
              R"("length":104857600,"typeGuid":"c12a7328-f81f-11d2-ba4b-00a0c93ec93b","typeName":"EFI system",)"
              R"("name":"EFI system partition"}]})");
}

TEST_F(InspectTest, TheLabelOfAnMbrPartitionIsItsType)
{
    MakeMbr();

    EXPECT_EQ(Run({"inspect", "x.vhdx"}), 0);
    EXPECT_THAT(out, HasSubstr("Style       MBR\n\nNO"));
    EXPECT_THAT(out, HasSubstr(" 2  1048576  8388608  8.0 MiB  NTFS / exFAT\n"));

    EXPECT_EQ(Run({"inspect", "x.vhdx", "--json"}), 0);
    EXPECT_THAT(out, HasSubstr(R"("typeName": "NTFS / exFAT")"));
    EXPECT_THAT(out, HasSubstr(R"("name": "")"));
}

TEST_F(InspectTest, AnImageWithoutPartitionsIsDescribedAllTheSame)
{
    library.imagePartitions.clear();

    EXPECT_EQ(Run({"inspect", "x.vhdx"}), 0);

    EXPECT_THAT(out, HasSubstr("Disk size   512.0 MiB"));
    EXPECT_TRUE(out.ends_with("\nThe image has no partitions.\n")) << out;
}

TEST_F(InspectTest, WhatIsNoImageIsAFailure)
{
    library.inspectStatus = KK_STATUS_REGISTRY_CORRUPT;

    EXPECT_EQ(Run({"inspect", "x.vhdx"}), 1);

    EXPECT_EQ(out, "");
    EXPECT_EQ(err, "kkctl: inspecting x.vhdx: 0xC000014C KK_STATUS_REGISTRY_CORRUPT "
                   "(the partition table or the image is damaged, or is none at all)\n");
}

TEST_F(ImageCommandsTest, MountTellsWhichDiskItIs)
{
    EXPECT_EQ(Run({"mount", "x.vhdx"}), 0);
    EXPECT_EQ(out, "Mounted x.vhdx as disk 5\n");
    EXPECT_EQ(Run({"mount", "x.vhdx", "--json"}), 0);
    EXPECT_EQ(Json(), R"({"image":"x.vhdx","disk":5})");

    library.mountedDisk.reset();
    EXPECT_EQ(Run({"mount", "x.vhdx"}), 0);
    EXPECT_EQ(out, "Mounted x.vhdx, as a disk whose number is not known\n");
    EXPECT_EQ(Run({"mount", "x.vhdx", "--json"}), 0);
    EXPECT_EQ(Json(), R"({"image":"x.vhdx","disk":null})");
    EXPECT_THAT(library.edits, testing::Each("KkMountImage('Z:\\x.vhdx')"));
}

TEST_F(ImageCommandsTest, UnmountNamesTheImage)
{
    EXPECT_EQ(Run({"unmount", "x.vhdx"}), 0);
    EXPECT_EQ(out, "Unmounted x.vhdx\n");
    EXPECT_EQ(Run({"unmount", "x.vhdx", "--json"}), 0);
    EXPECT_EQ(Json(), R"({"image":"x.vhdx"})");

    EXPECT_THAT(library.edits, ElementsAre("KkUnmountImage('Z:\\x.vhdx')", "KkUnmountImage('Z:\\x.vhdx')"));
}

TEST_F(ImageCommandsTest, QueryTellsTheImageBehindADisk)
{
    library.diskImage = u"\\\\?\\Volume{1}\\\u00E4.vhdx";
    EXPECT_EQ(Run({"query", "3"}), 0);
    EXPECT_EQ(out, "Disk 3 shows the image \\\\?\\Volume{1}\\\u00E4.vhdx\n");
    EXPECT_EQ(Run({"query", "3", "--json"}), 0);
    EXPECT_EQ(Json(), "{\"disk\":3,\"isImage\":true,\"image\":\"\\\\\\\\?\\\\Volume{1}\\\\\u00E4.vhdx\"}");

    library.diskImage.clear();
    EXPECT_EQ(Run({"query", "0"}), 0);
    EXPECT_EQ(out, "Disk 0 shows no image.\n");
    EXPECT_EQ(Run({"query", "0", "--json"}), 0);
    EXPECT_EQ(Json(), R"({"disk":0,"isImage":false,"image":""})");
}

TEST_F(ImageCommandsTest, OverlayTellsDiskAndFile)
{
    EXPECT_EQ(Run({"overlay", "x.vhdx", "o.avhdx"}), 0);
    EXPECT_EQ(out, "Mounted x.vhdx as disk 5; what is written to it goes into o.avhdx\n");
    EXPECT_EQ(Run({"overlay", "x.vhdx", "o.avhdx", "--json"}), 0);
    EXPECT_EQ(Json(), R"({"image":"x.vhdx","overlay":"o.avhdx","disk":5})");

    EXPECT_THAT(library.edits, testing::Each("KkMountImageOverlay('Z:\\x.vhdx', 'Z:\\o.avhdx')"));
}

TEST_F(ImageCommandsTest, DiscardDeletesTheFile)
{
    std::ofstream(file) << "overlay";
    library.deletedFile = file;

    EXPECT_EQ(Run({"discard", file}), 0);
    EXPECT_EQ(out, "Discarded " + file + "\n");
    EXPECT_EQ(Run({"discard", file, "--json"}), 0);
    EXPECT_EQ(nlohmann::json::parse(out), (nlohmann::json{{"overlay", file}}));
    EXPECT_THAT(library.edits[0], HasSubstr("KkDiscardOverlay('Z:\\"));
}

TEST_F(ImageCommandsTest, AnOverlayThatStaysAfterDiscardIsAFailure)
{
    std::ofstream(file) << "overlay";

    EXPECT_EQ(Run({"discard", file}), 1);

    EXPECT_EQ(out, "");
    EXPECT_THAT(err, HasSubstr(file + " was detached, but the file could not be deleted"));
}

TEST_F(ImageCommandsTest, ADiscardThatFailsTellsWhetherTheFileIsGone)
{
    std::ofstream(file) << "overlay";
    library.editStatus = KK_E_FILE_NOT_FOUND;

    EXPECT_EQ(Run({"discard", file}), 1);
    EXPECT_THAT(err, HasSubstr("detaching " + file + ": 0x80070002 KK_E_FILE_NOT_FOUND"));
    EXPECT_THAT(err, Not(HasSubstr("deleted all the same")));

    library.deletedFile = file;
    EXPECT_EQ(Run({"discard", file}), 1);
    EXPECT_THAT(err, HasSubstr("the file was deleted all the same"));
    EXPECT_EQ(Run({"discard", file}), 1);
    EXPECT_THAT(err, Not(HasSubstr("deleted all the same"))) << "there was none";
}

TEST_F(ImageCommandsTest, ABackupIsNotDiscarded)
{
    std::ofstream(file) << "image";
    std::ofstream(file + ".json") << "{}";

    EXPECT_EQ(Run({"discard", file, "--yes"}), 2);

    EXPECT_THAT(err, HasSubstr("has a manifest beside it: it is a backup, and discard would delete it"));
    EXPECT_THAT(library.edits, IsEmpty());
}

TEST_F(ImageCommandsTest, AnOverlayWhoseNameTheLibraryWouldCutIsRefused)
{
    EXPECT_EQ(Run({"discard", std::string(1016, 'o')}), 0);
    EXPECT_EQ(Run({"discard", std::string(1017, 'o')}), 2);

    EXPECT_THAT(err, HasSubstr("is too long for an overlay"));
    EXPECT_EQ(library.edits.size(), 1u);
}

TEST_F(ImageCommandsTest, FailuresAreNamedAndReportNothingDone)
{
    library.editStatus = static_cast<KK_STATUS>(0x80070037);
    const std::vector<std::pair<std::vector<std::string>, std::string>> failures = {
        {{"mount", "x"}, "mounting x"},
        {{"unmount", "x"}, "unmounting x"},
        {{"query", "3"}, "asking what disk 3 is"},
        {{"overlay", "x", "o"}, "mounting x with the overlay o"},
        {{"discard", "o"}, "detaching o"},
    };
    for (const auto& [arguments, doing] : failures) {
        EXPECT_EQ(Run(arguments), 1);
        EXPECT_EQ(out, "");
        EXPECT_EQ(err, "kkctl: " + doing +
                           ": 0x80070037 HRESULT of ERROR_DEV_NOT_EXIST (the virtual disk is not attached)\n");
    }
}

TEST_F(ImageCommandsTest, WrongArgumentsNeverReachTheLibrary)
{
    const std::vector<std::vector<std::string>> wrong = {
        {"inspect"},
        {"inspect", "x", "y"},
        {"inspect", "nowhere"},
        {"mount"},
        {"mount", "x", "y"},
        {"mount", "nowhere"},
        {"unmount"},
        {"unmount", "nowhere"},
        {"query"},
        {"query", "x"},
        {"overlay", "x"},
        {"overlay", "nowhere", "o"},
        {"overlay", "x", "nowhere"},
        {"discard"},
        {"discard", "nowhere"},
    };
    for (const std::vector<std::string>& arguments : wrong) {
        EXPECT_EQ(Run(arguments), 2) << testing::PrintToString(arguments);
        EXPECT_EQ(out, "");
        EXPECT_THAT(err, testing::StartsWith("kkctl: "));
    }
    EXPECT_THAT(library.edits, IsEmpty());
    EXPECT_THAT(library.inspectedImages, IsEmpty());
}
