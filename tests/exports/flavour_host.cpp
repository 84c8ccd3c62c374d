#include "exports/support/export_test.h"

namespace {

class LinkedLibrary final : public LibraryFlavour {
public:
    const machine::KestrelkitApi& Api() const override { return api_; }
    bool IsSanitized() const override { return true; }

private:
    machine::KestrelkitApi api_ = {
        .listDisks = &KkListDisks,
        .listPartitions = &KkListPartitions,
        .setDriveLetter = &KkSetDriveLetter,
        .addMountPoint = &KkAddMountPoint,
        .createPartition = &KkCreatePartition,
        .deletePartition = &KkDeletePartition,
        .extendPartition = &KkExtendPartition,
        .shrinkPartition = &KkShrinkPartition,
        .formatPartition = &KkFormatPartition,
        .reboot = &KkReboot,
        .backup = &KkBackup,
        .inspectImage = &KkInspectImage,
        .mountImage = &KkMountImage,
        .unmountImage = &KkUnmountImage,
        .queryDiskImage = &KkQueryDiskImage,
        .restorePartitions = &KkRestorePartitions,
        .restoreToFreeSpace = &KkRestoreToFreeSpace,
        .restoreToVolume = &KkRestoreToVolume,
        .cloneVolume = &KkCloneVolume,
        .mountImageOverlay = &KkMountImageOverlay,
        .discardOverlay = &KkDiscardOverlay,
        .recoverShrinkToFit = &KkRecoverShrinkToFit,
    };
};

}  // namespace

std::unique_ptr<LibraryFlavour> MakeLibraryFlavour()
{
    return std::make_unique<LinkedLibrary>();
}
