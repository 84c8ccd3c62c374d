#include "machine/kernel32.h"

#include <algorithm>
#include <filesystem>
#include <string>

#include "kestrelkit/kestrelkit.h"
#include "machine/gate.h"
#include "machine/io_request.h"
#include "machine/machine.h"
#include "machine/native_text.h"
#include "machine/text.h"

namespace machine {

namespace {

/// `X:\`, the mount point that is a drive letter.
bool IsLetterPoint(const std::u16string& point)
{
    return point.size() == 3 && point[1] == u':' && point[2] == u'\\';
}

/// Volumes are mounted on empty folders of NTFS volumes only; mapped drives count as such.
bool IsEmptyFolder(const Machine& machine, const std::u16string& folder)
{
    const std::optional<std::string> hostPath = machine.drives.HostPath(folder);
    std::error_code error;
    return hostPath && std::filesystem::is_directory(*hostPath, error) && std::filesystem::is_empty(*hostPath, error) &&
           !machine.mountManager->Folders().contains(folder);
}

bool SetMountPoint(Machine& machine, const std::u16string& point, const std::u16string& volumePath)
{
    const std::shared_ptr<Volume> volume = machine.volumes.FindByPath(volumePath);
    if (volume == nullptr || !volumePath.ends_with(u'\\') || !point.ends_with(u'\\')) {
        return false;
    }
    if (IsLetterPoint(point)) {
        return !machine.drives.IsMapped(point[0]) && machine.volumes.AssignLetter(*volume, point[0]);
    }
    if (!IsEmptyFolder(machine, point)) {
        return false;
    }
    machine.mountManager->MountOnFolder(point, volume->Path());
    return true;
}

bool DeleteMountPoint(Machine& machine, const std::u16string& point)
{
    if (!IsLetterPoint(point)) {
        return point.ends_with(u'\\') && machine.mountManager->RemoveFolder(point);
    }
    const std::shared_ptr<Volume> volume = machine.volumes.FindByLetter(point[0]);
    if (volume != nullptr) {
        machine.volumes.RemoveLetter(*volume);
    }
    return volume != nullptr;
}

uint32_t LogicalDrives(const Machine& machine)
{
    uint32_t mask = machine.drives.LetterMask();
    for (const std::shared_ptr<Volume>& volume : machine.volumes.All()) {
        mask |= volume->Letter() ? 1u << (*volume->Letter() - u'A') : 0;
    }
    return mask;
}

int32_t KK_CALL SetVolumeMountPointW(const char16_t* point, const char16_t* volumePath)
{
    Machine& machine = Machine::Current();
    const std::u16string where = TextOf(point);
    const std::u16string what = TextOf(volumePath);
    CallRecord call = {
        .kind = CallKind::Win32Bool, .name = "SetVolumeMountPointW", .object = Utf8(where + u" " + what)};
    return PassGate(machine, std::move(call),
                    [&](CallRecord&) -> int32_t { return SetMountPoint(machine, where, what) ? 1 : 0; });
}

int32_t KK_CALL DeleteVolumeMountPointW(const char16_t* point)
{
    Machine& machine = Machine::Current();
    const std::u16string where = TextOf(point);
    CallRecord call = {.kind = CallKind::Win32Bool, .name = "DeleteVolumeMountPointW", .object = Utf8(where)};
    return PassGate(machine, std::move(call),
                    [&](CallRecord&) -> int32_t { return DeleteMountPoint(machine, where) ? 1 : 0; });
}

uint32_t KK_CALL GetLogicalDrives()
{
    Machine& machine = Machine::Current();
    return PassGate(machine, {.kind = CallKind::Win32Bool, .name = "GetLogicalDrives", .object = {}},
                    [&](CallRecord&) { return LogicalDrives(machine); });
}

/// The length without the terminator, or the room that is needed with it.
uint32_t KK_CALL GetSystemDirectoryW(char16_t* buffer, uint32_t units)
{
    CallRecord call = {.kind = CallKind::Win32Bool, .name = "GetSystemDirectoryW", .object = {}, .length = units};
    return PassGate(Machine::Current(), std::move(call), [&](CallRecord&) {
        const auto length = static_cast<uint32_t>(kSystemFolder.size());
        if (units <= length) {
            return length + 1;
        }
        std::copy(kSystemFolder.begin(), kSystemFolder.end(), buffer);
        buffer[length] = 0;
        return length;
    });
}

int32_t KK_CALL CloseHandle(kk::NtHandle handle)
{
    Machine& machine = Machine::Current();
    CallRecord call = {.kind = CallKind::Close, .name = "CloseHandle", .object = HandleName(machine, handle)};
    return PassGate(machine, std::move(call),
                    [&](CallRecord& record) -> int32_t { return CloseOrReport(machine, record, handle) ? 1 : 0; });
}

}  // namespace

void AddKernel32(Modules& modules)
{
    modules.Add(u"kernel32.dll", {
                                     {"SetVolumeMountPointW", EntryAddress(&SetVolumeMountPointW)},
                                     {"DeleteVolumeMountPointW", EntryAddress(&DeleteVolumeMountPointW)},
                                     {"GetLogicalDrives", EntryAddress(&GetLogicalDrives)},
                                     {"GetSystemDirectoryW", EntryAddress(&GetSystemDirectoryW)},
                                     {"CloseHandle", EntryAddress(&CloseHandle)},
                                 });
    AddKernel32Processes(modules);
}

}  // namespace machine
