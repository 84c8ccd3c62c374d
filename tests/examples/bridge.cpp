// The exports for programs of Linux: the shipped DLL on a simulated machine, in Linux's own calling convention. The
// machine's one disk is the file that KK_EXAMPLE_DISK names, and a path of the host will do for one of drive Z.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include "machine/kestrelkit_api.h"
#include "machine/machine.h"
#include "machine/qemu_virtual_disks.h"
#include "machine/snapshot_service.h"
#include "machine/virtual_disk_service.h"

namespace {

using machine::KestrelkitApi;

class Bridge {
public:
    Bridge()
    {
        machine_.SetFailureHandler([](const std::string& breach) {
            std::fprintf(stderr, "machine: %s\n", breach.c_str());
            std::abort();
        });
        machine_.journal.SetRecording(false);
        if (const char* const disk = std::getenv("KK_EXAMPLE_DISK"); disk != nullptr) {
            machine_.AddDiskFile(disk);
        }
        machine::InstallVirtualDiskService(machine_, std::make_shared<machine::QemuVirtualDisks>());
        machine::InstallSnapshotService(machine_);
        dll_ = std::make_unique<machine::LoadedDll>(KK_DLL);
        api_ = machine::ApiFromDll(*dll_);
    }

    /// The exports, for the thread that calls. The one that made the machine belongs to it already.
    const KestrelkitApi& Api() const
    {
        if (std::this_thread::get_id() != maker_) {
            thread_local const machine::ThreadBlock block = machine_.JoinThread();
        }
        return api_;
    }

private:
    std::thread::id maker_ = std::this_thread::get_id();
    machine::Machine machine_;
    std::unique_ptr<machine::LoadedDll> dll_;
    KestrelkitApi api_ = {};
};

const Bridge& TheBridge()
{
    static const Bridge bridge;
    return bridge;
}

/// What a program hands over, as the machine's programs would.
template <typename T>
struct Argument {
    T value;
    T ForMachine() const { return value; }
};

template <>
struct Argument<const KkWideChar*> {
    explicit Argument(const KkWideChar* value) : value_(value)
    {
        if (value == nullptr || value[0] != u'/') {
            return;
        }
        path_ = u"Z:" + std::u16string(value);
        std::replace(path_.begin(), path_.end(), u'/', u'\\');
        value_ = path_.c_str();
    }
    const KkWideChar* ForMachine() const { return value_; }

private:
    const KkWideChar* value_;
    std::u16string path_;
};

template <auto member>
struct Export;

template <typename R, typename... A, R (KK_CALL* KestrelkitApi::*member)(A...)>
struct Export<member> {
    static R Call(A... arguments) { return (TheBridge().Api().*member)(Argument<A>{arguments}.ForMachine()...); }
};

}  // namespace

// The header declares the names with the other convention, so they are given in assembly.
#define KK_EXPORT(member, name)                                                                                        \
    extern "C" [[gnu::used, gnu::visibility("hidden")]] constinit auto* const bridge##name =                           \
        &Export<&KestrelkitApi::member>::Call;                                                                         \
    asm(".globl " #name "\n.type " #name ", @function\n" #name ": jmp *bridge" #name "(%rip)\n");

KK_EXPORT(listDisks, KkListDisks)
KK_EXPORT(listPartitions, KkListPartitions)
KK_EXPORT(setDriveLetter, KkSetDriveLetter)
KK_EXPORT(addMountPoint, KkAddMountPoint)
KK_EXPORT(createPartition, KkCreatePartition)
KK_EXPORT(deletePartition, KkDeletePartition)
KK_EXPORT(extendPartition, KkExtendPartition)
KK_EXPORT(shrinkPartition, KkShrinkPartition)
KK_EXPORT(formatPartition, KkFormatPartition)
KK_EXPORT(reboot, KkReboot)
KK_EXPORT(backup, KkBackup)
KK_EXPORT(inspectImage, KkInspectImage)
KK_EXPORT(mountImage, KkMountImage)
KK_EXPORT(unmountImage, KkUnmountImage)
KK_EXPORT(queryDiskImage, KkQueryDiskImage)
KK_EXPORT(restorePartitions, KkRestorePartitions)
KK_EXPORT(restoreToFreeSpace, KkRestoreToFreeSpace)
KK_EXPORT(restoreToVolume, KkRestoreToVolume)
KK_EXPORT(cloneVolume, KkCloneVolume)
KK_EXPORT(mountImageOverlay, KkMountImageOverlay)
KK_EXPORT(discardOverlay, KkDiscardOverlay)
KK_EXPORT(recoverShrinkToFit, KkRecoverShrinkToFit)
