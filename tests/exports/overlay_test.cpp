#include <algorithm>
#include <fstream>

#include "exports/support/image_mount_test.h"

namespace {

using machine::CallKind;
using testing::ElementsAre;
using testing::IsEmpty;

/// An image with a few bytes at its second MiB.
class OverlayTest : public ImageMountTest {
protected:
    OverlayTest() { EXPECT_TRUE(images->ImageBytes(ImagePath())->Write(kMiB, kContent)); }

    void ExpectTheImageAsItWas() const
    {
        std::vector<uint8_t> bytes(512);
        EXPECT_TRUE(images->ImageBytes(ImagePath())->Read(kMiB, bytes));
        EXPECT_EQ(bytes, kContent);
        EXPECT_EQ(images->ImageBytes(ImagePath())->WriteSizes().size(), 1u);
    }

    const std::vector<uint8_t> kContent = std::vector<uint8_t>(512, 0x11);
};

class OverlayStepsTest : public ScriptedMountTest {};

TEST_F(OverlayTest, ChangesGoToTheOverlayAndAreGoneWithIt)
{
    SHOWS(KkMountImageOverlay, KK_STATUS_SUCCESS,
          "what is written to the disk goes into the overlay; the image does not change");
    SHOWS(KkDiscardOverlay, KK_STATUS_SUCCESS, "disk and overlay file are gone, with all that was written");

    ASSERT_EQ(MountOverlay(), 0);
    EXPECT_EQ(diskNumber, 1u);
    EXPECT_THAT(Attached(), ElementsAre(OverlayPath()));
    machine::Disk& disk = *machine.FindDisk(1);
    EXPECT_EQ(disk.Size(), 16 * kMiB);
    EXPECT_EQ(disk.ReadBytes(kMiB, 512), kContent);
    disk.WriteBytes(kMiB, std::vector<uint8_t>(512, 0x22));
    EXPECT_EQ(machine.Imbalances(), std::vector<std::string>{});

    EXPECT_EQ(Discard(), 0);

    EXPECT_THAT(Attached(), IsEmpty());
    EXPECT_FALSE(HasOverlayFile());
    EXPECT_EQ(machine.FindDisk(1), nullptr);
    ExpectTheImageAsItWas();
}

TEST_F(OverlayTest, AnUnmountedOverlayCanBeMountedAsAnImageAgain)
{
    SHOWS(KkUnmountImage, KK_STATUS_SUCCESS, "an overlay's file stays when it is unmounted");
    SHOWS(KkMountImage, KK_STATUS_SUCCESS, "an unmounted overlay can be attached as an image");

    ASSERT_EQ(MountOverlay(), 0);
    machine.FindDisk(1)->WriteBytes(kMiB, std::vector<uint8_t>(512, 0x22));
    ASSERT_EQ(api.unmountImage(WindowsPath(OverlayPath()).c_str()), 0);
    ASSERT_TRUE(HasOverlayFile());

    ASSERT_EQ(api.mountImage(WindowsPath(OverlayPath()).c_str(), &diskNumber), 0);

    EXPECT_EQ(machine.FindDisk(diskNumber)->ReadBytes(kMiB, 1)[0], 0x22);
    EXPECT_EQ(Discard(), 0);
}

TEST_F(OverlayTest, AMountedOverlayOutlivesTheLibrary)
{
    SHOWS(KkMountImageOverlay, KK_STATUS_SUCCESS, "the disk stays when the library goes");

    ASSERT_EQ(MountOverlay(), 0);

    library.reset();

    EXPECT_THAT(Attached(), ElementsAre(OverlayPath()));
}

TEST_F(OverlayTest, TheVolumesOfAnOverlayMayGetLetters)
{
    SHOWS(KkMountImageOverlay, KK_STATUS_SUCCESS, "the system may give the disk's volumes letters");

    machine::WriteGptTable(*images->ImageBytes(ImagePath()), 512, {.partitions = {{.start = kMiB, .length = kMiB}}});
    machine.volumes.SetAutomaticLetters(true);

    ASSERT_EQ(MountOverlay(), 0);

    EXPECT_TRUE(machine.FindVolume(1, kMiB)->Letter().has_value());
}

TEST_F(OverlayTest, AFileThatIsThereIsNeverReused)
{
    SHOWS(KkMountImageOverlay, 0x80070050, "the overlay's file exists; it is not touched");

    std::ofstream(OverlayPath()) << "somebody's";

    EXPECT_EQ(MountOverlay(), Status(0x80070050));

    EXPECT_EQ(diskNumber, kNotWritten);
    EXPECT_EQ(ReadFile(OverlayPath()), "somebody's");
    EXPECT_THAT(Attached(), IsEmpty());
}

TEST_F(OverlayTest, AnOverlayThatIsMountedIsNotMadeAnew)
{
    SHOWS(KkMountImageOverlay, 0x80070050, "the overlay is mounted already, and stays so");

    ASSERT_EQ(MountOverlay(), 0);

    EXPECT_EQ(MountOverlay(), Status(0x80070050));

    EXPECT_THAT(Attached(), ElementsAre(OverlayPath()));
}

TEST_F(OverlayTest, AnImageThatIsMountedOrMissingCarriesNoOverlay)
{
    SHOWS(KkMountImageOverlay, 0x80070020, "the image is attached; no overlay is made");
    SHOWS(KkMountImageOverlay, KK_E_FILE_NOT_FOUND, "the image does not exist; no overlay is made");

    ASSERT_EQ(Mount(), 0);
    EXPECT_EQ(MountOverlay(), Status(0x80070020));
    EXPECT_FALSE(HasOverlayFile());
    ASSERT_EQ(Unmount(), 0);
    images->Remove(ImagePath());

    EXPECT_EQ(MountOverlay(), Status(0x80070002));
    EXPECT_FALSE(HasOverlayFile());
}

TEST_F(OverlayTest, AnOverlayThatCannotBeAttachedIsLeftToItsOwner)
{
    SHOWS(KkMountImageOverlay, 0x80070522, "the overlay cannot be attached; its file stays");
    SHOWS(KkDiscardOverlay, 0x80070015, "the overlay was not attached; its file is deleted");

    machine.faults.Fail({.name = "AttachVirtualDisk"}, 1, 1314);

    EXPECT_EQ(MountOverlay(), Status(0x80070522));

    EXPECT_EQ(diskNumber, kNotWritten);
    EXPECT_TRUE(HasOverlayFile());
    EXPECT_EQ(machine.Imbalances(), std::vector<std::string>{});
    EXPECT_EQ(Discard(), Status(0x80070015)) << "it was not mounted";
    EXPECT_FALSE(HasOverlayFile());
}

TEST_F(OverlayTest, AnOverlayWhoseDiskHasNoNameStaysMounted)
{
    SHOWS(KkMountImageOverlay, 0x80070037, "the disk's name cannot be learnt; the overlay is attached all the same");
    SHOWS(KkDiscardOverlay, KK_STATUS_SUCCESS, "an overlay whose disk has no name can be discarded");

    virtualDisks.behaviour.pathFailure = 55;

    EXPECT_EQ(MountOverlay(), Status(0x80070037));

    EXPECT_EQ(diskNumber, kNotWritten);
    EXPECT_THAT(Attached(), ElementsAre(OverlayPath()));
    EXPECT_EQ(Discard(), 0);
}

TEST_F(OverlayTest, DiscardingDetachesFirstAndThenDeletes)
{
    SHOWS(KkDiscardOverlay, KK_STATUS_SUCCESS, "the disk is detached before the file is deleted");

    ASSERT_EQ(MountOverlay(), 0);
    machine.journal.Clear();

    ASSERT_EQ(Discard(), 0);

    std::vector<std::string> names;
    for (const machine::CallRecord& call : machine.journal.Records()) {
        names.push_back(call.name);
    }
    EXPECT_THAT(names, ElementsAre("OpenVirtualDisk", "DetachVirtualDisk", "NtClose", "NtCreateFile", "NtClose"));
    const machine::CallRecord& open = *machine.journal.First({.kind = CallKind::CreateFile});
    EXPECT_EQ(open.object, "\\??\\" + machine::Utf8(WindowsPath(OverlayPath())));
    EXPECT_EQ(open.access, 0x110000u);
    EXPECT_EQ(open.fileAttributes, 0x80u);
    EXPECT_EQ(open.share, 7u);
    EXPECT_EQ(open.disposition, 1u);
    EXPECT_EQ(open.options, 0x1060u);
    EXPECT_EQ(open.objectAttributes, 0x40u);
}

TEST_F(OverlayTest, WhatIsNotMountedIsDeletedAllTheSame)
{
    SHOWS(KkDiscardOverlay, KK_E_FILE_NOT_FOUND,
          "what is no image is deleted all the same, and a missing file is no other failure");

    std::ofstream(OverlayPath()) << "left over";

    EXPECT_EQ(Discard(), Status(0x80070002)) << "no image at all";
    EXPECT_FALSE(HasOverlayFile());

    EXPECT_EQ(Discard(), Status(0x80070002)) << "no file at all";
}

TEST_F(OverlayTest, AnOverlayThatDoesNotLetGoStays)
{
    SHOWS(KkDiscardOverlay, 0x800700AA, "the service does not detach the disk; deleting the file is tried");

    ASSERT_EQ(MountOverlay(), 0);
    virtualDisks.behaviour.detachFailure = 170;
    machine.journal.Clear();

    EXPECT_EQ(Discard(), Status(0x800700AA));

    EXPECT_EQ(machine.journal.First({.kind = CallKind::CreateFile})->result, 0xC0000043) << "it was tried";
    EXPECT_TRUE(HasOverlayFile());
    EXPECT_EQ(machine.Imbalances(), std::vector<std::string>{});
}

TEST_F(OverlayTest, AFileThatCannotBeDeletedIsNoFailure)
{
    SHOWS(KkDiscardOverlay, KK_STATUS_SUCCESS, "a file that cannot be deleted does not matter");

    ASSERT_EQ(MountOverlay(), 0);
    machine.faults.Fail({.kind = CallKind::CreateFile}, 1, 0xC0000022);

    EXPECT_EQ(Discard(), 0);

    EXPECT_TRUE(HasOverlayFile());
    EXPECT_THAT(Attached(), IsEmpty());
}

TEST_F(OverlayTest, AFolderIsNotDeleted)
{
    SHOWS(KkDiscardOverlay, KK_E_FILE_NOT_FOUND, "a folder is not deleted");

    std::filesystem::create_directory(OverlayPath());

    EXPECT_EQ(Discard(), Status(0x80070002));

    EXPECT_TRUE(HasOverlayFile());
}

TEST_F(OverlayStepsTest, AnOverlayIsCreatedOverItsParentAndAttachedForGood)
{
    SHOWS(KkMountImageOverlay, KK_STATUS_SUCCESS, "the overlay is created over its parent and attached for good");

    EXPECT_EQ(MountOverlay(), 0);

    EXPECT_THAT(service.log, ElementsAre("Create 0 null 0 0 null", "Attach image null 4 0 pointer null",
                                         "GetPath image 1024", "Close"));
    EXPECT_EQ(diskNumber, 12u);
    EXPECT_EQ(service.createdPath, WindowsPath(OverlayPath()));
    EXPECT_EQ(service.parentPath, WindowsPath(ImagePath()));
    EXPECT_EQ(service.storageType.deviceId, 3u);
    EXPECT_EQ(machine::BracedGuid(service.storageType.vendorId), u"{ec984aec-a0f9-47e9-901f-71415a66345b}");
}

TEST_F(OverlayStepsTest, AllButTheParentIsInherited)
{
    SHOWS(KkMountImageOverlay, KK_STATUS_SUCCESS, "sizes and identifiers are inherited from the parent");

    EXPECT_EQ(MountOverlay(), 0);

    constexpr size_t kParentPath = 48;
    std::vector<uint8_t> record(128);
    record[0] = 2;
    std::copy_n(service.creation.begin() + kParentPath, sizeof(void*), record.begin() + kParentPath);
    EXPECT_EQ(service.creation, record);
    std::vector<uint8_t> attachment(24);
    attachment[0] = 1;
    EXPECT_EQ(service.attachment, attachment);
}

TEST_F(OverlayStepsTest, AFailedCreationIsTold)
{
    SHOWS(KkMountImageOverlay, 0x80070001, "the low 16 bits of the error of the creation are told");
    SHOWS(KkMountImageOverlay, KK_E_ACCESSDENIED, "the service refuses the creation");

    for (const ServiceError& each : kServiceErrors) {
        service.createError = each.error;
        service.log.clear();

        EXPECT_EQ(MountOverlay(), Status(each.status));

        EXPECT_EQ(service.log.size(), 1u);
    }
    EXPECT_EQ(diskNumber, kNotWritten);
}

TEST_F(OverlayStepsTest, ACreationThatGivesNoHandleIsAFailure)
{
    SHOWS(KkMountImageOverlay, 0x80070001, "a creation that succeeds without a handle is a failure");

    service.givesHandles = false;

    EXPECT_EQ(MountOverlay(), Status(0x80070001));

    EXPECT_THAT(service.log, ElementsAre("Create 0 null 0 0 null"));
    EXPECT_EQ(diskNumber, kNotWritten);
}

TEST_F(OverlayStepsTest, AFailedAttachmentOrAMissingPathIsToldAndTheHandleClosed)
{
    SHOWS(KkMountImageOverlay, 0x80070015,
          "the low 16 bits of the error of attachment or name are told; the handle is closed");

    for (const ServiceError& each : kServiceErrors) {
        service.attachError = each.error;
        service.log.clear();
        EXPECT_EQ(MountOverlay(), Status(each.status));
        EXPECT_THAT(service.log, ElementsAre("Create 0 null 0 0 null", "Attach image null 4 0 pointer null", "Close"));

        service.attachError = 0;
        service.pathError = each.error;
        service.log.clear();
        EXPECT_EQ(MountOverlay(), Status(each.status));
        EXPECT_THAT(service.log, ElementsAre("Create 0 null 0 0 null", "Attach image null 4 0 pointer null",
                                             "GetPath image 1024", "Close"));
        service.pathError = 0;
    }
    EXPECT_EQ(diskNumber, kNotWritten);
}

TEST_F(OverlayStepsTest, TheNumberNeedNotBeWantedNorTold)
{
    SHOWS(KkMountImageOverlay, KK_STATUS_SUCCESS,
          "the number need not be asked for, and stays untouched when the disk's name has none");

    EXPECT_EQ(api.mountImageOverlay(u"parent", u"overlay", nullptr), 0);

    service.path = u"no number";
    EXPECT_EQ(MountOverlay(), 0);
    EXPECT_EQ(diskNumber, kNotWritten);
}

TEST_F(OverlayStepsTest, MissingPathsAreRefusedBeforeTheServiceIsAsked)
{
    SHOWS(KkMountImageOverlay, KK_STATUS_INVALID_PARAMETER, "a path is null; the service is not asked");
    SHOWS(KkDiscardOverlay, KK_STATUS_INVALID_PARAMETER,
          "the path is null; neither the service is asked nor a file deleted");

    EXPECT_EQ(api.mountImageOverlay(nullptr, u"overlay", &diskNumber), Status(0xC000000D));
    EXPECT_EQ(api.mountImageOverlay(u"parent", nullptr, &diskNumber), Status(0xC000000D));
    EXPECT_EQ(api.discardOverlay(nullptr), Status(0xC000000D));

    EXPECT_THAT(service.log, IsEmpty());
    EXPECT_EQ(machine.journal.Count({.kind = CallKind::CreateFile}), 0u);
}

TEST_F(OverlayStepsTest, ThePathIsPrefixedWhateverItLooksLike)
{
    SHOWS(KkDiscardOverlay, KK_STATUS_SUCCESS, "the path is taken as one without a prefix, whatever it looks like");

    for (const std::string path : {"", "x.avhdx", "\\\\?\\Z:\\x", "\\??\\Z:\\x", "\\\\.\\Z:\\x", "\\\\server\\x"}) {
        machine.journal.Clear();

        EXPECT_EQ(api.discardOverlay(machine::Utf16(path).c_str()), 0) << "the service's answer";

        EXPECT_EQ(machine.journal.First({.kind = CallKind::CreateFile})->object, "\\??\\" + path);
    }
}

TEST_F(OverlayStepsTest, TheNameOfTheFileIsCutAt1023Units)
{
    SHOWS(KkDiscardOverlay, KK_STATUS_SUCCESS,
          "the name of the file to delete is cut to 1023 units; the service gets all of it");

    for (const size_t units : {1018u, 1019u, 1020u, 3000u}) {
        machine.journal.Clear();

        EXPECT_EQ(api.discardOverlay(std::u16string(units, u'x').c_str()), 0);

        EXPECT_EQ(machine.journal.First({.kind = CallKind::CreateFile})->object,
                  "\\??\\" + std::string(std::min<size_t>(units, 1019), 'x'));
        EXPECT_EQ(service.openedPath.size(), units) << "the service gets all of it";
    }
}

TEST_F(OverlayStepsTest, TheFileGoesWhateverTheServiceAnswers)
{
    SHOWS(KkDiscardOverlay, 0x80070015, "the low 16 bits of the error of the detachment are told; the file is deleted");
    SHOWS(KkDiscardOverlay, KK_E_FILE_NOT_FOUND, "the service does not open the file; it is deleted");
    SHOWS(KkDiscardOverlay, KK_E_ACCESSDENIED, "the service refuses the detachment; the file is deleted");

    for (const ServiceError& each : kServiceErrors) {
        std::ofstream(OverlayPath()) << "left over";
        service.detachError = each.error;
        EXPECT_EQ(Discard(), Status(each.status));
        EXPECT_FALSE(HasOverlayFile());
    }
    std::ofstream(OverlayPath()) << "left over";
    service.openError = 5;
    EXPECT_EQ(Discard(), Status(0x80070002));
    EXPECT_FALSE(HasOverlayFile());
}

}  // namespace
