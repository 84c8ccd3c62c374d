#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "exports/support/export_test.h"
#include "support/scripted_virtdisk.h"

/// A machine with one disk, number 0, and an image in memory that nobody uses.
class ImageMountTest : public ExportTest {
protected:
    static constexpr uint32_t kNotWritten = 0xEEEEEEEE;

    ImageMountTest()
    {
        machine.AddDisk(4 * kMiB);
        EXPECT_EQ(images->Create({.file = ImagePath(), .sizeBytes = 16 * kMiB, .blockBytes = 0, .sectorBytes = 512}),
                  0u);
    }

    int32_t Mount() { return api.mountImage(WindowsPath(ImagePath()).c_str(), &diskNumber); }
    int32_t Unmount() const { return api.unmountImage(WindowsPath(ImagePath()).c_str()); }
    int32_t MountOverlay()
    {
        return api.mountImageOverlay(WindowsPath(ImagePath()).c_str(), WindowsPath(OverlayPath()).c_str(), &diskNumber);
    }
    int32_t Discard() const { return api.discardOverlay(WindowsPath(OverlayPath()).c_str()); }

    std::filesystem::path ImagePath() const { return folder / "image.vhdx"; }
    std::filesystem::path OverlayPath() const { return folder / "overlay.avhdx"; }
    bool HasOverlayFile() const { return std::filesystem::exists(OverlayPath()); }
    std::vector<std::filesystem::path> Attached() const { return virtualDisks.AttachedImages(); }

    TemporaryFolder folder;
    uint32_t diskNumber = kNotWritten;
};

/// The same with a service that does nothing but write its calls down.
class ScriptedMountTest : public ImageMountTest {
protected:
    using Log = std::vector<std::string>;

    ScriptedVirtdisk service{machine};
};

/// Errors of the service and what becomes of them: their low 16 bits, whatever they are.
struct ServiceError {
    uint32_t error;
    uint32_t status;
};
inline constexpr ServiceError kServiceErrors[] = {
    {1, 0x80070001},       {5, 0x80070005},          {21, 0x80070015},         {0xFFFF, 0x8007FFFF},
    {0x10000, 0x80070000}, {0xC03A0015, 0x80070015}, {0xFFFFFFFF, 0x8007FFFF},
};
