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
    SHOWS(KkMountImage, KK_STATUS_SUCCESS, "the image is a disk with its volumes until it is unmounted");
    SHOWS(KkUnmountImage, KK_STATUS_SUCCESS, "the disk is gone, and nothing is left open");

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
    SHOWS(KkMountImage, KK_STATUS_SUCCESS, "the disk stays when the library goes");

    ASSERT_EQ(Mount(), 0);

    library.reset();

    EXPECT_THAT(Attached(), ElementsAre(ImagePath()));
}

TEST_F(MountImageTest, TheDiskCanBeWritten)
{
    SHOWS(KkMountImage, KK_STATUS_SUCCESS, "what is written to the disk changes the image");

    ASSERT_EQ(Mount(), 0);

    machine.FindDisk(diskNumber)->WriteBytes(2 * kMiB, std::vector<uint8_t>(512, 7));

    std::vector<uint8_t> bytes(512);
    EXPECT_TRUE(images->ImageBytes(ImagePath())->Read(2 * kMiB, bytes));
    EXPECT_EQ(bytes, std::vector<uint8_t>(512, 7));
}

TEST_F(MountImageTest, TheSystemMayGiveTheImagesVolumesLetters)
{
    SHOWS(KkMountImage, KK_STATUS_SUCCESS, "the system may give the disk's volumes letters");

    machine.volumes.SetAutomaticLetters(true);

    ASSERT_EQ(Mount(), 0);

    EXPECT_TRUE(machine.FindVolume(1, kMiB)->Letter().has_value());
}

TEST_F(MountImageTest, AnImageThatIsADiskAlreadyStaysThatDisk)
{
    SHOWS(KkMountImage, KK_E_FILE_NOT_FOUND, "the image is attached already, and stays so");

    ASSERT_EQ(Mount(), 0);
    diskNumber = kNotWritten;

    EXPECT_EQ(Mount(), Status(0x80070002));

    EXPECT_EQ(diskNumber, kNotWritten);
    EXPECT_THAT(Attached(), ElementsAre(ImagePath()));
    EXPECT_EQ(Unmount(), 0);
}

TEST_F(MountImageTest, WhatIsNoImageIsNotFound)
{
    SHOWS(KkMountImage, KK_E_FILE_NOT_FOUND, "the file is missing, no image, a folder, or its name empty");
    SHOWS(KkUnmountImage, KK_E_FILE_NOT_FOUND, "the file is missing, no image, a folder, or its name empty");

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
    SHOWS(KkUnmountImage, 0x80070015, "the image is not attached");

    EXPECT_EQ(Unmount(), Status(0x80070015));
}

TEST_F(MountImageTest, ADiskThatDoesNotLetGoStays)
{
    SHOWS(KkUnmountImage, 0x800700AA, "the service does not detach the disk, which stays");

    ASSERT_EQ(Mount(), 0);
    virtualDisks.behaviour.detachFailure = 170;

    EXPECT_EQ(Unmount(), Status(0x800700AA));

    EXPECT_THAT(Attached(), ElementsAre(ImagePath()));
}

TEST_F(MountImageTest, AnImageWhoseDiskHasNoNameStaysMounted)
{
    SHOWS(KkMountImage, 0x80070037, "the disk's name cannot be learnt; the image is attached all the same");

    virtualDisks.behaviour.pathFailure = 55;

    EXPECT_EQ(Mount(), Status(0x80070037));

    EXPECT_EQ(diskNumber, kNotWritten);
    EXPECT_THAT(Attached(), ElementsAre(ImagePath()));
    EXPECT_EQ(machine.Imbalances(), std::vector<std::string>{});
}

TEST_F(MountImageStepsTest, AnImageOfAnyFormatIsOpenedAndAttachedForGood)
{
    SHOWS(KkMountImage, KK_STATUS_SUCCESS, "an image of any format is opened and attached for good");

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
    SHOWS(KkUnmountImage, KK_STATUS_SUCCESS, "the image is opened to detach its disk");

    EXPECT_EQ(Unmount(), 0);

    EXPECT_THAT(service.log, ElementsAre("Open 262144 0 null", "Detach image 0 0", "Close"));
    EXPECT_EQ(service.openedPath, WindowsPath(ImagePath()));
    EXPECT_EQ(service.storageType.deviceId, 0u);
    EXPECT_EQ(machine::BracedGuid(service.storageType.vendorId), u"{00000000-0000-0000-0000-000000000000}");
}

TEST_F(MountImageStepsTest, AllReasonsNotToOpenAreOne)
{
    SHOWS(KkMountImage, KK_E_FILE_NOT_FOUND, "all errors of the service's open are one");
    SHOWS(KkUnmountImage, KK_E_FILE_NOT_FOUND, "all errors of the service's open are one");

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
    SHOWS(KkMountImage, KK_E_FILE_NOT_FOUND, "an open that succeeds without a handle is a failure");
    SHOWS(KkUnmountImage, KK_E_FILE_NOT_FOUND, "an open that succeeds without a handle is a failure");

    service.givesHandles = false;

    EXPECT_EQ(Mount(), Status(0x80070002));
    EXPECT_EQ(Unmount(), Status(0x80070002));

    EXPECT_EQ(diskNumber, kNotWritten);
    EXPECT_EQ(service.log.size(), 2u);
}

TEST_F(MountImageStepsTest, WhatAFailedOpenLeavesIsNoHandle)
{
    SHOWS(KkMountImage, KK_E_FILE_NOT_FOUND, "what a failed open left in the handle's place is not used or closed");
    SHOWS(KkUnmountImage, KK_E_FILE_NOT_FOUND, "what a failed open left in the handle's place is not used or closed");

    service.openError = 5;

    EXPECT_EQ(Mount(), Status(0x80070002));
    EXPECT_EQ(Unmount(), Status(0x80070002));

    EXPECT_EQ(service.log.size(), 2u) << "neither attached nor detached nor closed";
}

TEST_F(MountImageStepsTest, AFailedAttachmentIsToldAndItsHandleClosed)
{
    SHOWS(KkMountImage, 0x80070001, "the low 16 bits of the error of the attachment are told; the handle is closed");
    SHOWS(KkMountImage, 0x80070000, "an error whose low 16 bits are 0 is a failure all the same");
    SHOWS(KkMountImage, KK_E_ACCESSDENIED, "the service refuses the attachment");

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
    SHOWS(KkMountImage, 0x80070015, "the low 16 bits of the error of the disk's name are told; the handle is closed");

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
    SHOWS(KkUnmountImage, 0x80070001, "the low 16 bits of the error of the detachment are told; the handle is closed");
    SHOWS(KkUnmountImage, KK_E_ACCESSDENIED, "the service refuses the detachment");

    for (const ServiceError& each : kServiceErrors) {
        service.detachError = each.error;
        service.log.clear();

        EXPECT_EQ(Unmount(), Status(each.status));

        EXPECT_THAT(service.log, ElementsAre("Open 262144 0 null", "Detach image 0 0", "Close"));
    }
}

TEST_F(MountImageStepsTest, TheDigitsAtThePathsEndAreTheDisksNumber)
{
    SHOWS(KkMountImage, KK_STATUS_SUCCESS,
          "the number is read from the digits at the end of the disk's name, cut to 32 bits");

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
    SHOWS(KkMountImage, KK_STATUS_SUCCESS, "a disk's name without a number at its end leaves the number untouched");

    for (const std::u16string path : {u"", u"\\\\.\\PhysicalDrive", u"12 ", u"5/", u"5:", u"5\uFF11"}) {
        service.path = path;

        EXPECT_EQ(Mount(), 0);

        EXPECT_EQ(diskNumber, kNotWritten) << machine::Utf8(path);
    }
}

TEST_F(MountImageStepsTest, APathThatFillsItsBufferEndsOneUnitBeforeTheBuffersEnd)
{
    SHOWS(KkMountImage, KK_STATUS_SUCCESS,
          "a disk's name that fills its buffer is cut one unit before the buffer's end");

    service.terminates = false;
    service.path = std::u16string(509, u'p') + u"345";

    EXPECT_EQ(Mount(), 0);

    EXPECT_EQ(diskNumber, 34u);
}

TEST_F(MountImageStepsTest, AShortPathWithoutATerminatorEndsWhereItEnds)
{
    SHOWS(KkMountImage, KK_STATUS_SUCCESS, "a disk's name without a terminator ends where it ends");

    service.terminates = false;
    service.path = u"PhysicalDrive34";

    EXPECT_EQ(Mount(), 0);

    EXPECT_EQ(diskNumber, 34u);
}

TEST_F(MountImageStepsTest, TheNumberNeedNotBeWanted)
{
    SHOWS(KkMountImage, KK_STATUS_SUCCESS, "the number need not be asked for");

    EXPECT_EQ(api.mountImage(u"image.vhdx", nullptr), 0);

    EXPECT_EQ(service.log.back(), "Close");
}

TEST_F(MountImageStepsTest, AMissingPathIsRefusedBeforeTheServiceIsAsked)
{
    SHOWS(KkMountImage, KK_STATUS_INVALID_PARAMETER, "the path is null; the service is not asked");
    SHOWS(KkUnmountImage, KK_STATUS_INVALID_PARAMETER, "the path is null; the service is not asked");

    EXPECT_EQ(api.mountImage(nullptr, &diskNumber), Status(0xC000000D));
    EXPECT_EQ(api.unmountImage(nullptr), Status(0xC000000D));

    EXPECT_EQ(diskNumber, kNotWritten);
    EXPECT_THAT(service.log, IsEmpty());
}

}  // namespace
