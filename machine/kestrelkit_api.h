#pragma once

#include <stdexcept>
#include <string>

#include "kestrelkit/kestrelkit.h"
#include "machine/pe_loader.h"

namespace machine {

/// The library's exports, so that one test runs against the linked library and against the shipped DLL.
struct KestrelkitApi {
    decltype(&KkListDisks) listDisks;
    decltype(&KkListPartitions) listPartitions;
    decltype(&KkSetDriveLetter) setDriveLetter;
    decltype(&KkAddMountPoint) addMountPoint;
    decltype(&KkCreatePartition) createPartition;
    decltype(&KkDeletePartition) deletePartition;
    decltype(&KkExtendPartition) extendPartition;
    decltype(&KkShrinkPartition) shrinkPartition;
    decltype(&KkFormatPartition) formatPartition;
    decltype(&KkReboot) reboot;
    decltype(&KkBackup) backup;
    decltype(&KkInspectImage) inspectImage;
    decltype(&KkMountImage) mountImage;
    decltype(&KkUnmountImage) unmountImage;
    decltype(&KkQueryDiskImage) queryDiskImage;
    decltype(&KkRestorePartitions) restorePartitions;
    decltype(&KkRestoreToFreeSpace) restoreToFreeSpace;
    decltype(&KkRestoreToVolume) restoreToVolume;
    decltype(&KkCloneVolume) cloneVolume;
    decltype(&KkMountImageOverlay) mountImageOverlay;
    decltype(&KkDiscardOverlay) discardOverlay;
    decltype(&KkRecoverShrinkToFit) recoverShrinkToFit;
};

/// The table of a loaded DLL, which must outlive it. Throws std::runtime_error when an export is missing.
inline KestrelkitApi ApiFromDll(const LoadedDll& dll)
{
    const auto fill = [&dll](auto& slot, const char* name) {
        slot = dll.Export<std::remove_reference_t<decltype(slot)>>(name);
        if (slot == nullptr) {
            throw std::runtime_error(std::string("the DLL lacks the export ") + name);
        }
    };
    KestrelkitApi api = {};
    fill(api.listDisks, "KkListDisks");
    fill(api.listPartitions, "KkListPartitions");
    fill(api.setDriveLetter, "KkSetDriveLetter");
    fill(api.addMountPoint, "KkAddMountPoint");
    fill(api.createPartition, "KkCreatePartition");
    fill(api.deletePartition, "KkDeletePartition");
    fill(api.extendPartition, "KkExtendPartition");
    fill(api.shrinkPartition, "KkShrinkPartition");
    fill(api.formatPartition, "KkFormatPartition");
    fill(api.reboot, "KkReboot");
    fill(api.backup, "KkBackup");
    fill(api.inspectImage, "KkInspectImage");
    fill(api.mountImage, "KkMountImage");
    fill(api.unmountImage, "KkUnmountImage");
    fill(api.queryDiskImage, "KkQueryDiskImage");
    fill(api.restorePartitions, "KkRestorePartitions");
    fill(api.restoreToFreeSpace, "KkRestoreToFreeSpace");
    fill(api.restoreToVolume, "KkRestoreToVolume");
    fill(api.cloneVolume, "KkCloneVolume");
    fill(api.mountImageOverlay, "KkMountImageOverlay");
    fill(api.discardOverlay, "KkDiscardOverlay");
    fill(api.recoverShrinkToFit, "KkRecoverShrinkToFit");
    return api;
}

}  // namespace machine
