#include <fstream>

#include "exports/support/image_mount_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class MountImageTest : public ImageMountTest {
protected:
    MountImageTest()
    {
        // What lies on the image: one partition.
        machine::WriteGptTable(*images->ImageBytes(ImagePath()), 512,
                               {.partitions = {{.start = kMiB, .length = 8 * kMiB}}});
    }
};

class MountImageStepsTest : public ScriptedMountTest {};

TEST_F(MountImageTest, AMountedImageIsADiskUntilItIsUnmounted)
{
    ASSERT_EQ(Mount(), 0);

    EXPECT_EQ(diskNumber, 1u);
    EXPECT_THAT(Attached(), ElementsAre(ImagePath()));
    EXPECT_NE(machine.FindVolume(1, kMiB), nullptr);
    EXPECT_EQ(machine.Imbalances(), std::vector<std::string>{});

    EXPECT_EQ(Unmount(), 0);
    EXPECT_THAT(Attached(), IsEmpty());
    EXPECT_EQ(machine.FindDisk(1), nullptr);
}

TEST_F(MountImageTest, TheImageOutlivesTheLibrary)
{
    ASSERT_EQ(Mount(), 0);

    library.reset();

    EXPECT_THAT(Attached(), ElementsAre(ImagePath()));
}

TEST_F(MountImageTest, TheDiskCanBeWritten)
{
    ASSERT_EQ(Mount(), 0);

    machine.FindDisk(diskNumber)->WriteBytes(2 * kMiB, std::vector<uint8_t>(512, 7));

    std::vector<uint8_t> bytes(512);
    EXPECT_TRUE(images->ImageBytes(ImagePath())->Read(2 * kMiB, bytes));
    EXPECT_EQ(bytes, std::vector<uint8_t>(512, 7));
}

TEST_F(MountImageTest, TheSystemMayGiveTheImagesVolumesLetters)
{
    machine.volumes.SetAutomaticLetters(true);

    ASSERT_EQ(Mount(), 0);

    EXPECT_TRUE(machine.FindVolume(1, kMiB)->Letter().has_value());
}

TEST_F(MountImageTest, AnImageThatIsADiskAlreadyStaysThatDisk)
{
    ASSERT_EQ(Mount(), 0);
    diskNumber = kNotWritten;

    EXPECT_EQ(Mount(), Status(0x80070002));

    EXPECT_EQ(diskNumber, kNotWritten);
    EXPECT_THAT(Attached(), ElementsAre(ImagePath()));
    EXPECT_EQ(Unmount(), 0);
}

TEST_F(MountImageTest, WhatIsNoImageIsNotFound)
{
    const std::filesystem::path text = folder / "text.vhdx";
    std::ofstream(text) << "no image";
    for (const std::u16string& path :
         {WindowsPath(text), WindowsPath(folder / "missing.vhdx"), WindowsPath(folder.Path()), std::u16string()}) {
        EXPECT_EQ(api.mountImage(path.c_str(), &diskNumber), Status(0x80070002));
        EXPECT_EQ(api.unmountImage(path.c_str()), Status(0x80070002));
    }
    EXPECT_EQ(diskNumber, kNotWritten);
}

TEST_F(MountImageTest, AnImageThatIsNoDiskCannotBeUnmounted)
{
    EXPECT_EQ(Unmount(), Status(0x80070015));
}

TEST_F(MountImageTest, ADiskThatDoesNotLetGoStays)
{
    ASSERT_EQ(Mount(), 0);
    virtualDisks.behaviour.detachFailure = 170;

    EXPECT_EQ(Unmount(), Status(0x800700AA));

    EXPECT_THAT(Attached(), ElementsAre(ImagePath()));
}

TEST_F(MountImageTest, AnImageWhoseDiskHasNoNameStaysMounted)
{
    virtualDisks.behaviour.pathFailure = 55;

    EXPECT_EQ(Mount(), Status(0x80070037));

    EXPECT_EQ(diskNumber, kNotWritten);
    EXPECT_THAT(Attached(), ElementsAre(ImagePath()));
    EXPECT_EQ(machine.Imbalances(), std::vector<std::string>{});
}

TEST_F(MountImageStepsTest, AnImageOfAnyFormatIsOpenedAndAttachedForGood)
{
    EXPECT_EQ(Mount(), 0);

    EXPECT_THAT(service.log,
                ElementsAre("Open 655360 0 null", "Attach image null 4 0 pointer null", "GetPath image 1024", "Close"));
    EXPECT_EQ(service.openedPath, WindowsPath(ImagePath()));
    EXPECT_EQ(service.storageType.deviceId, 0u);
    EXPECT_EQ(machine::BracedGuid(service.storageType.vendorId), u"{00000000-0000-0000-0000-000000000000}");
    std::vector<uint8_t> record(24);
    record[0] = 1;
    EXPECT_EQ(service.attachment, record) << "version 1, whose one field is 0 in every SDK";
}

TEST_F(MountImageStepsTest, AnImageIsOpenedToDetachItsDisk)
{
    EXPECT_EQ(Unmount(), 0);

    EXPECT_THAT(service.log, ElementsAre("Open 262144 0 null", "Detach image 0 0", "Close"));
    EXPECT_EQ(service.openedPath, WindowsPath(ImagePath()));
    EXPECT_EQ(service.storageType.deviceId, 0u);
    EXPECT_EQ(machine::BracedGuid(service.storageType.vendorId), u"{00000000-0000-0000-0000-000000000000}");
}

TEST_F(MountImageStepsTest, AllReasonsNotToOpenAreOne)
{
    for (const ServiceError& each : kServiceErrors) {
        service.openError = each.error;

        EXPECT_EQ(Mount(), Status(0x80070002));
        EXPECT_EQ(Unmount(), Status(0x80070002));
    }
    EXPECT_EQ(diskNumber, kNotWritten);
    EXPECT_THAT(service.log, testing::Each(testing::StartsWith("Open")));
}

TEST_F(MountImageStepsTest, AnOpenThatGivesNoHandleIsAFailure)
{
    service.givesHandles = false;

    EXPECT_EQ(Mount(), Status(0x80070002));
    EXPECT_EQ(Unmount(), Status(0x80070002));

    EXPECT_EQ(diskNumber, kNotWritten);
    EXPECT_EQ(service.log.size(), 2u);
}

TEST_F(MountImageStepsTest, WhatAFailedOpenLeavesIsNoHandle)
{
    service.openError = 5;

    EXPECT_EQ(Mount(), Status(0x80070002));
    EXPECT_EQ(Unmount(), Status(0x80070002));

    EXPECT_EQ(service.log.size(), 2u) << "neither attached nor detached nor closed";
}

TEST_F(MountImageStepsTest, AFailedAttachmentIsToldAndItsHandleClosed)
{
    for (const ServiceError& each : kServiceErrors) {
        service.attachError = each.error;
        service.log.clear();

        EXPECT_EQ(Mount(), Status(each.status));

        EXPECT_EQ(diskNumber, kNotWritten);
        EXPECT_THAT(service.log, ElementsAre("Open 655360 0 null", "Attach image null 4 0 pointer null", "Close"));
    }
}

TEST_F(MountImageStepsTest, AMissingPhysicalPathIsToldAndTheHandleClosed)
{
    for (const ServiceError& each : kServiceErrors) {
        service.pathError = each.error;
        service.log.clear();

        EXPECT_EQ(Mount(), Status(each.status));

        EXPECT_EQ(diskNumber, kNotWritten);
        EXPECT_THAT(service.log, ElementsAre("Open 655360 0 null", "Attach image null 4 0 pointer null",
                                             "GetPath image 1024", "Close"));
    }
}

TEST_F(MountImageStepsTest, AFailedDetachmentIsToldAndItsHandleClosed)
{
    for (const ServiceError& each : kServiceErrors) {
        service.detachError = each.error;
        service.log.clear();

        EXPECT_EQ(Unmount(), Status(each.status));

        EXPECT_THAT(service.log, ElementsAre("Open 262144 0 null", "Detach image 0 0", "Close"));
    }
}

TEST_F(MountImageStepsTest, TheDigitsAtThePathsEndAreTheDisksNumber)
{
    const std::pair<std::u16string, uint32_t> cases[] = {
        {u"\\\\.\\PhysicalDrive12", 12},
        {u"\\\\.\\PhysicalDrive0", 0},
        {u"\\\\.\\PhysicalDrive4294967295", 0xFFFFFFFF},
        {u"12", 12},
        {u"007", 7},
        {u"/1", 1},
        {u":98", 98},
        {u"1x2", 2},
        {u"4294967296", 0},
        {u"PhysicalDrive99999999999", 1215752191},
        {u"\uFF115", 5},
    };
    for (const auto& [path, number] : cases) {
        service.path = path;
        diskNumber = kNotWritten;

        EXPECT_EQ(Mount(), 0);

        EXPECT_EQ(diskNumber, number) << machine::Utf8(path);
    }
}

TEST_F(MountImageStepsTest, APathWithoutANumberAtItsEndLeavesTheNumberAlone)
{
    for (const std::u16string path : {u"", u"\\\\.\\PhysicalDrive", u"12 ", u"5/", u"5:", u"5\uFF11"}) {
        service.path = path;

        EXPECT_EQ(Mount(), 0);

        EXPECT_EQ(diskNumber, kNotWritten) << machine::Utf8(path);
    }
}

TEST_F(MountImageStepsTest, APathThatFillsItsBufferEndsOneUnitBeforeTheBuffersEnd)
{
    service.terminates = false;
    service.path = std::u16string(509, u'p') + u"345";

    EXPECT_EQ(Mount(), 0);

    EXPECT_EQ(diskNumber, 34u);
}

TEST_F(MountImageStepsTest, AShortPathWithoutATerminatorEndsWhereItEnds)
{
    service.terminates = false;
    service.path = u"PhysicalDrive34";

    EXPECT_EQ(Mount(), 0);

    EXPECT_EQ(diskNumber, 34u);
}

TEST_F(MountImageStepsTest, TheNumberNeedNotBeWanted)
{
    EXPECT_EQ(api.mountImage(u"image.vhdx", nullptr), 0);

    EXPECT_EQ(service.log.back(), "Close");
}

TEST_F(MountImageStepsTest, AMissingPathIsRefusedBeforeTheServiceIsAsked)
{
    EXPECT_EQ(api.mountImage(nullptr, &diskNumber), Status(0xC000000D));
    EXPECT_EQ(api.unmountImage(nullptr), Status(0xC000000D));

    EXPECT_EQ(diskNumber, kNotWritten);
    EXPECT_THAT(service.log, IsEmpty());
}

}  // namespace
