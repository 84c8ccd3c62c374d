#include <fstream>
#include <functional>

#include "exports/support/image_mount_test.h"
#include "support/forked_run.h"

// The entry points that the exports for existing images need. They are bound once in a process.

namespace {

using machine::CallKind;
using testing::IsEmpty;

constexpr const char* kRequired[] = {"OpenVirtualDisk", "AttachVirtualDisk", "DetachVirtualDisk",
                                     "GetVirtualDiskPhysicalPath"};
constexpr int32_t kUnavailable = Status(0xC0000225);

class ImageBindingTest : public ScriptedMountTest {
protected:
    /// Runs `body` in a process of its own, with one entry point missing.
    void Without(const char* entry, const std::function<void()>& body)
    {
        EXPECT_EQ(RunForked([&] {
                      machine.modules.RemoveEntry(u"virtdisk.dll", entry);
                      body();
                      EXPECT_EQ(machine.Imbalances(), std::vector<std::string>{});
                      return 0;
                  }),
                  0)
            << "without " << entry;
    }

    int32_t Query()
    {
        isImage = 7;
        path.fill(u'?');
        return api.queryDiskImage(0, &isImage, path.data(), static_cast<uint32_t>(path.size()));
    }
    void ExpectNoImage()
    {
        EXPECT_EQ(Query(), 0);
        EXPECT_EQ(isImage, 0u);
        EXPECT_EQ(path[0], u'\0');
    }

    /// Whatever was loaded and looked up, in order.
    std::vector<std::string> LookedUp() const
    {
        std::vector<std::string> names;
        for (const machine::CallRecord& call : machine.journal.Records()) {
            if (call.kind == CallKind::LoadLibrary || call.kind == CallKind::GetProcedure) {
                names.push_back(call.object);
            }
        }
        return names;
    }

    /// Every export that needs the service, with what it answers when there is none.
    void ExpectAllUnavailable()
    {
        EXPECT_EQ(Mount(), kUnavailable);
        EXPECT_EQ(Unmount(), kUnavailable);
        EXPECT_EQ(MountOverlay(), kUnavailable);
        EXPECT_EQ(Discard(), kUnavailable);
        ExpectNoImage();
        EXPECT_EQ(diskNumber, kNotWritten);
        EXPECT_THAT(service.log, IsEmpty());
    }

    uint32_t isImage = 7;
    std::array<char16_t, 8> path = {};
};

TEST_F(ImageBindingTest, AllEntryPointsAreLookedUpInTheirOrderByTheFirstCallAlone)
{
    SHOWS(KkMountImage, KK_STATUS_SUCCESS,
          "the first call of any export that needs the virtual-disk service looks all entry points up, once");
    SHOWS(KkUnmountImage, KK_STATUS_SUCCESS, "the entry points are looked up once");
    SHOWS(KkMountImageOverlay, KK_STATUS_SUCCESS, "the entry points are looked up once");
    SHOWS(KkDiscardOverlay, KK_STATUS_SUCCESS, "the entry points are looked up once");
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "the entry points are looked up once");

    const std::vector<std::string> expected = {
        "virtdisk.dll",
        "virtdisk.dll!OpenVirtualDisk",
        "virtdisk.dll!AttachVirtualDisk",
        "virtdisk.dll!DetachVirtualDisk",
        "virtdisk.dll!GetVirtualDiskPhysicalPath",
        "virtdisk.dll!GetStorageDependencyInformation",
        "virtdisk.dll!CreateVirtualDisk",
    };
    const std::function<int32_t()> calls[] = {[this] { return Mount(); }, [this] { return Unmount(); },
                                              [this] { return MountOverlay(); }, [this] { return Discard(); },
                                              [this] { return Query(); }};
    for (const auto& call : calls) {
        EXPECT_EQ(RunForked([&] {
                      EXPECT_EQ(call(), 0);
                      EXPECT_EQ(LookedUp(), expected);
                      machine.journal.Clear();
                      for (const auto& later : calls) {
                          EXPECT_EQ(later(), 0);
                      }
                      EXPECT_THAT(LookedUp(), IsEmpty());
                      return 0;
                  }),
                  0);
    }
}

TEST_F(ImageBindingTest, AMissingRequiredEntryPointStopsAllOfThem)
{
    SHOWS(KkMountImage, KK_STATUS_NOT_FOUND, "each of four entry points of the virtual-disk service must be there");
    SHOWS(KkUnmountImage, KK_STATUS_NOT_FOUND, "each of four entry points of the virtual-disk service must be there");
    SHOWS(KkMountImageOverlay, KK_STATUS_NOT_FOUND,
          "each of four entry points of the virtual-disk service must be there");
    SHOWS(KkDiscardOverlay, KK_STATUS_NOT_FOUND, "each of four entry points of the virtual-disk service must be there");
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "without one of four entry points no disk shows an image");

    for (const char* const entry : kRequired) {
        Without(entry, [this] { ExpectAllUnavailable(); });
    }
}

TEST_F(ImageBindingTest, AMissingEntryPointIsMissingForGoodAndTheRestIsLookedUpAllTheSame)
{
    SHOWS(KkMountImage, KK_STATUS_NOT_FOUND, "an entry point that is missing is not looked for again");

    for (const char* const entry : kRequired) {
        Without(entry, [this] {
            EXPECT_EQ(Mount(), kUnavailable);
            EXPECT_EQ(LookedUp().size(), 7u);
            machine.journal.Clear();
            const ScriptedVirtdisk complete(machine);
            ExpectAllUnavailable();
            EXPECT_THAT(LookedUp(), IsEmpty());
            EXPECT_THAT(complete.log, IsEmpty());
        });
    }
}

TEST_F(ImageBindingTest, ALibraryThatDidNotLoadIsNotLookedForAgain)
{
    SHOWS(KkMountImage, KK_STATUS_NOT_FOUND, "a library that did not load is not looked for again");
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "a library that does not load means that no disk shows an image");

    machine.faults.Fail({.kind = CallKind::LoadLibrary}, 1, 0xC0000135);
    ExpectNoImage();
    EXPECT_EQ(LookedUp(), std::vector<std::string>{"virtdisk.dll"});
    machine.journal.Clear();

    ExpectAllUnavailable();

    EXPECT_THAT(LookedUp(), IsEmpty());
}

TEST_F(ImageBindingTest, AMachineWithoutTheLibraryHasNoImages)
{
    SHOWS(KkMountImage, KK_STATUS_NOT_FOUND, "the system has no virtual-disk service");
    SHOWS(KkUnmountImage, KK_STATUS_NOT_FOUND, "the system has no virtual-disk service");
    SHOWS(KkMountImageOverlay, KK_STATUS_NOT_FOUND, "the system has no virtual-disk service");
    SHOWS(KkDiscardOverlay, KK_STATUS_NOT_FOUND, "the system has no virtual-disk service");
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "without a virtual-disk service no disk shows an image");

    machine.modules.Remove(u"virtdisk.dll");

    ExpectAllUnavailable();
}

TEST_F(ImageBindingTest, WithoutCreationThereAreNoOverlaysButImages)
{
    SHOWS(KkMountImageOverlay, KK_STATUS_NOT_FOUND, "the virtual-disk service creates no files");
    SHOWS(KkMountImage, KK_STATUS_SUCCESS, "a service that creates no files attaches images");
    SHOWS(KkUnmountImage, KK_STATUS_SUCCESS, "a service that creates no files detaches images");
    SHOWS(KkDiscardOverlay, KK_STATUS_SUCCESS, "a service that creates no files detaches overlays");

    Without("CreateVirtualDisk", [this] {
        EXPECT_EQ(MountOverlay(), kUnavailable);
        EXPECT_THAT(service.log, IsEmpty());
        EXPECT_EQ(Mount(), 0);
        EXPECT_EQ(Unmount(), 0);
        EXPECT_EQ(Discard(), 0);
        service.log.clear();
        EXPECT_EQ(Query(), 0);
        EXPECT_EQ(service.log.size(), 1u);
    });
}

TEST_F(ImageBindingTest, WithoutTheDependencyQueryNoDiskIsLookedAt)
{
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "without the entry point to ask for dependencies no disk is looked at");
    SHOWS(KkMountImage, KK_STATUS_SUCCESS, "the entry point to ask for dependencies is not needed");
    SHOWS(KkMountImageOverlay, KK_STATUS_SUCCESS, "the entry point to ask for dependencies is not needed");

    Without("GetStorageDependencyInformation", [this] {
        ExpectNoImage();
        EXPECT_EQ(machine.journal.Count({.kind = CallKind::CreateFile}), 0u);
        EXPECT_EQ(Mount(), 0);
        EXPECT_EQ(MountOverlay(), 0);
        EXPECT_EQ(Unmount(), 0);
        EXPECT_EQ(Discard(), 0);
    });
}

TEST_F(ImageBindingTest, AMissingServiceComesBeforeAMissingPath)
{
    SHOWS(KkMountImage, KK_STATUS_NOT_FOUND, "a missing service comes before a null path");
    SHOWS(KkUnmountImage, KK_STATUS_NOT_FOUND, "a missing service comes before a null path");
    SHOWS(KkMountImageOverlay, KK_STATUS_NOT_FOUND, "a missing service comes before null paths");
    SHOWS(KkDiscardOverlay, KK_STATUS_NOT_FOUND, "a missing service comes before a null path");

    Without("OpenVirtualDisk", [this] {
        EXPECT_EQ(api.mountImage(nullptr, &diskNumber), kUnavailable);
        EXPECT_EQ(api.unmountImage(nullptr), kUnavailable);
        EXPECT_EQ(api.mountImageOverlay(nullptr, nullptr, &diskNumber), kUnavailable);
        EXPECT_EQ(api.discardOverlay(nullptr), kUnavailable);
    });
}

TEST_F(ImageBindingTest, AnOverlaysFileIsDeletedWithoutTheService)
{
    SHOWS(KkDiscardOverlay, KK_STATUS_NOT_FOUND, "the file is deleted also without the service");

    std::ofstream(OverlayPath()) << "left over";
    Without("DetachVirtualDisk", [this] {
        EXPECT_EQ(Discard(), kUnavailable);
        EXPECT_FALSE(HasOverlayFile());
    });
}

TEST_F(ImageBindingTest, BackupsAndImagesHaveTablesOfTheirOwn)
{
    SHOWS(KkBackup, KK_STATUS_UNSUCCESSFUL, "the image cannot be created, and images can be attached all the same");
    SHOWS(KkMountImage, KK_STATUS_SUCCESS, "backups and calls for images look the entry points up for themselves");

    const auto backup = [this] {
        return api.backup(0, u"Z:\\nowhere", nullptr, 0, 0, 0, 0, nullptr, 0, 1, 0, nullptr);
    };
    machine.FindDisk(0)->Gpt({.partitions = {{.start = kMiB, .length = kMiB}}});
    service.createError = 5;

    EXPECT_EQ(backup(), Status(0xC0000001));
    EXPECT_EQ(LookedUp().size(), 5u);
    EXPECT_EQ(Mount(), 0);
    EXPECT_EQ(LookedUp().size(), 12u);

    EXPECT_EQ(backup(), Status(0xC0000001));
    EXPECT_EQ(Mount(), 0);
    EXPECT_EQ(LookedUp().size(), 12u);
}

TEST_F(ImageBindingTest, ImagesCanBeUnusableWhereBackupsAreNot)
{
    SHOWS(KkMountImage, KK_STATUS_NOT_FOUND, "an entry point is missing that only calls for images need");
    SHOWS(KkBackup, KK_STATUS_UNSUCCESSFUL,
          "an entry point that only calls for images need is not missed; the creation fails");

    machine.FindDisk(0)->Gpt({.partitions = {{.start = kMiB, .length = kMiB}}});
    service.createError = 5;
    Without("OpenVirtualDisk", [this] {
        EXPECT_EQ(Mount(), kUnavailable);
        EXPECT_EQ(api.backup(0, u"Z:\\nowhere", nullptr, 0, 0, 0, 0, nullptr, 0, 1, 0, nullptr), Status(0xC0000001));
        EXPECT_EQ(service.log.size(), 1u) << "the creation";
    });
}

}  // namespace
