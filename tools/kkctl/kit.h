#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <kestrelkit/kestrelkit.h>

namespace kkctl {

/// UTF-16 text as the library takes it: of `char16_t` on the host, of `wchar_t` on Windows.
using WideString = std::basic_string<KkWideChar>;

/// The library's functions, found by name in the DLL that was loaded.
struct Exports {
    decltype(&KkListDisks) listDisks = nullptr;
    decltype(&KkListPartitions) listPartitions = nullptr;
    decltype(&KkSetDriveLetter) setDriveLetter = nullptr;
    decltype(&KkAddMountPoint) addMountPoint = nullptr;
    decltype(&KkCreatePartition) createPartition = nullptr;
    decltype(&KkDeletePartition) deletePartition = nullptr;
    decltype(&KkExtendPartition) extendPartition = nullptr;
    decltype(&KkShrinkPartition) shrinkPartition = nullptr;
    decltype(&KkFormatPartition) formatPartition = nullptr;
    decltype(&KkReboot) reboot = nullptr;
    decltype(&KkBackup) backup = nullptr;
    decltype(&KkInspectImage) inspectImage = nullptr;
    decltype(&KkMountImage) mountImage = nullptr;
    decltype(&KkUnmountImage) unmountImage = nullptr;
    decltype(&KkQueryDiskImage) queryDiskImage = nullptr;
    decltype(&KkRestorePartitions) restorePartitions = nullptr;
    decltype(&KkRestoreToFreeSpace) restoreToFreeSpace = nullptr;
    decltype(&KkRestoreToVolume) restoreToVolume = nullptr;
    decltype(&KkCloneVolume) cloneVolume = nullptr;
    decltype(&KkMountImageOverlay) mountImageOverlay = nullptr;
    decltype(&KkDiscardOverlay) discardOverlay = nullptr;
    decltype(&KkRecoverShrinkToFit) recoverShrinkToFit = nullptr;

    /// Shows every slot with its function's name to `visit`.
    template <typename Visitor>
    void ForEach(Visitor visit)
    {
        visit("KkListDisks", listDisks);
        visit("KkListPartitions", listPartitions);
        visit("KkSetDriveLetter", setDriveLetter);
        visit("KkAddMountPoint", addMountPoint);
        visit("KkCreatePartition", createPartition);
        visit("KkDeletePartition", deletePartition);
        visit("KkExtendPartition", extendPartition);
        visit("KkShrinkPartition", shrinkPartition);
        visit("KkFormatPartition", formatPartition);
        visit("KkReboot", reboot);
        visit("KkBackup", backup);
        visit("KkInspectImage", inspectImage);
        visit("KkMountImage", mountImage);
        visit("KkUnmountImage", unmountImage);
        visit("KkQueryDiskImage", queryDiskImage);
        visit("KkRestorePartitions", restorePartitions);
        visit("KkRestoreToFreeSpace", restoreToFreeSpace);
        visit("KkRestoreToVolume", restoreToVolume);
        visit("KkCloneVolume", cloneVolume);
        visit("KkMountImageOverlay", mountImageOverlay);
        visit("KkDiscardOverlay", discardOverlay);
        visit("KkRecoverShrinkToFit", recoverShrinkToFit);
    }
};

/// What the command line says about the library and the machine it works on.
struct KitOptions {
    std::vector<std::string> disks;  ///< files that are disks 0, 1, ... of the simulated machine
    std::string dll;                 ///< the library's file; empty for the usual place
    bool writesDisks = false;        ///< the command may change disks of the simulated machine
};

/// The library or its machine could not be made ready.
class KitError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The user named something that is not there or cannot be handed to the library.
class ArgumentError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A path that cannot be handed to the library.
class PathError : public ArgumentError {
public:
    using ArgumentError::ArgumentError;
};

/// The loaded library, and what depends on where the program runs.
class Kit {
public:
    Kit() = default;
    Kit(const Kit&) = delete;
    Kit& operator=(const Kit&) = delete;
    virtual ~Kit() = default;

    const Exports& Calls() const { return exports_; }

    /// Whether the disks are files and the machine is not the one that the program runs on.
    virtual bool IsSimulated() const = 0;

    /// Gives a user's file path the absolute form that the library needs, or throws PathError.
    virtual WideString ToLibraryPath(const std::string& path) const = 0;

    /// Bytes put so far into the image that a backup is writing to `path`. For any thread, also during a call.
    virtual uint64_t ImageBytesWritten(const std::string& path) const = 0;

protected:
    Exports exports_;
};

/// Loads the library; throws KitError. Defined once for Windows and once for the simulated machine.
std::unique_ptr<Kit> OpenKit(const KitOptions& options);

}  // namespace kkctl
