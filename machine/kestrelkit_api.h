#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>

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

/// An export's place in the table and its name in the DLL.
template <typename Function>
struct ExportSlot {
    Function KestrelkitApi::* slot;
    std::string_view name;
};

inline constexpr std::tuple kExports = {
    ExportSlot{&KestrelkitApi::listDisks, "KkListDisks"},
    ExportSlot{&KestrelkitApi::listPartitions, "KkListPartitions"},
    ExportSlot{&KestrelkitApi::setDriveLetter, "KkSetDriveLetter"},
    ExportSlot{&KestrelkitApi::addMountPoint, "KkAddMountPoint"},
    ExportSlot{&KestrelkitApi::createPartition, "KkCreatePartition"},
    ExportSlot{&KestrelkitApi::deletePartition, "KkDeletePartition"},
    ExportSlot{&KestrelkitApi::extendPartition, "KkExtendPartition"},
    ExportSlot{&KestrelkitApi::shrinkPartition, "KkShrinkPartition"},
    ExportSlot{&KestrelkitApi::formatPartition, "KkFormatPartition"},
    ExportSlot{&KestrelkitApi::reboot, "KkReboot"},
    ExportSlot{&KestrelkitApi::backup, "KkBackup"},
    ExportSlot{&KestrelkitApi::inspectImage, "KkInspectImage"},
    ExportSlot{&KestrelkitApi::mountImage, "KkMountImage"},
    ExportSlot{&KestrelkitApi::unmountImage, "KkUnmountImage"},
    ExportSlot{&KestrelkitApi::queryDiskImage, "KkQueryDiskImage"},
    ExportSlot{&KestrelkitApi::restorePartitions, "KkRestorePartitions"},
    ExportSlot{&KestrelkitApi::restoreToFreeSpace, "KkRestoreToFreeSpace"},
    ExportSlot{&KestrelkitApi::restoreToVolume, "KkRestoreToVolume"},
    ExportSlot{&KestrelkitApi::cloneVolume, "KkCloneVolume"},
    ExportSlot{&KestrelkitApi::mountImageOverlay, "KkMountImageOverlay"},
    ExportSlot{&KestrelkitApi::discardOverlay, "KkDiscardOverlay"},
    ExportSlot{&KestrelkitApi::recoverShrinkToFit, "KkRecoverShrinkToFit"},
};

/// The table of a loaded DLL, which must outlive it. Throws std::runtime_error when an export is missing.
inline KestrelkitApi ApiFromDll(const LoadedDll& dll)
{
    KestrelkitApi api = {};
    const auto fill = [&]<typename Function>(const ExportSlot<Function>& entry) {
        api.*entry.slot = dll.Export<Function>(entry.name);
        if (api.*entry.slot == nullptr) {
            throw std::runtime_error("the DLL lacks the export " + std::string(entry.name));
        }
    };
    std::apply([&](const auto&... entries) { (fill(entries), ...); }, kExports);
    return api;
}

}  // namespace machine
