#include "core/kernel32_api.h"
#include "core/status.h"
#include "core/text.h"
#include "disk/disk_layout.h"
#include "disk/mount_points.h"
#include "disk/volume_lookup.h"
#include "disk/volume_mounting.h"
#include "partition/hidden_process.h"

namespace kk {

namespace {

constexpr size_t kSystemDirectoryUnits = 290;
constexpr size_t kInterpreterUnits = 300;
constexpr size_t kCommandLineUnits = 400;

/// How a volume is to be formatted; null texts are empty.
struct FormatRequest {
    const char16_t* fileSystem;
    const char16_t* label;
    bool quick;
};

bool IsEmpty(const char16_t* text)
{
    return text == nullptr || text[0] == 0;
}

/// The first free letter from D on; A to C are never given away.
bool FindFreeLetter(char16_t& letter)
{
    const Kernel32Api& api = GetKernel32Api();
    if (api.getLogicalDrives == nullptr) {
        return false;
    }
    const uint32_t taken = api.getLogicalDrives();
    for (letter = u'D'; letter <= u'Z'; ++letter) {
        if ((taken >> (letter - u'A') & 1) == 0) {
            return true;
        }
    }
    return false;
}

/// The volume's letter, or one that it is given now and keeps, on purpose, whatever happens later.
KK_STATUS NeedDriveLetter(uint32_t disk, uint64_t start, const char16_t* devicePath, char16_t& letter)
{
    if (char16_t present[kDriveLetterUnits]; GetDriveLetter(devicePath, present)) {
        letter = present[0];
        return KK_STATUS_SUCCESS;
    }
    if (!FindFreeLetter(letter) || SetDriveLetter(disk, start, letter) != KK_STATUS_SUCCESS) {
        return KK_STATUS_NO_MEDIA_IN_DEVICE;
    }
    return KK_STATUS_SUCCESS;
}

/// The command interpreter by its full path; without the folder, one that lies in the current folder would be run.
KK_STATUS FindInterpreter(char16_t (&path)[kInterpreterUnits])
{
    const uint32_t length = GetKernel32Api().getSystemDirectoryW(path, kSystemDirectoryUnits);
    if (length == 0 || length >= kSystemDirectoryUnits) {
        return KK_STATUS_UNSUCCESSFUL;
    }
    size_t position = length;
    AppendText(path, kInterpreterUnits, position, u"\\cmd.exe");
    return KK_STATUS_SUCCESS;
}

/// Label and file system go in as they are, unquoted, on purpose: the caller answers for them.
void FormatCommandLine(char16_t letter, const FormatRequest& request, char16_t (&line)[kCommandLineUnits])
{
    size_t position = 0;
    AppendText(line, kCommandLineUnits, position, u"cmd.exe /c format ");
    AppendUnit(line, kCommandLineUnits, position, letter);
    AppendText(line, kCommandLineUnits, position, u": /FS:");
    AppendText(line, kCommandLineUnits, position, IsEmpty(request.fileSystem) ? u"NTFS" : request.fileSystem);
    AppendText(line, kCommandLineUnits, position, request.quick ? u" /Q /Y" : u" /Y");
    if (!IsEmpty(request.label)) {
        AppendText(line, kCommandLineUnits, position, u" /V:");
        AppendText(line, kCommandLineUnits, position, request.label);
    }
}

KK_STATUS FormatPartition(uint32_t disk, uint64_t start, const FormatRequest& request)
{
    const Kernel32Api& api = GetKernel32Api();
    if (!BindKernel32() || api.createProcessW == nullptr || api.getSystemDirectoryW == nullptr) {
        return KK_STATUS_NOT_FOUND;
    }
    char16_t devicePath[kDevicePathUnits];
    if (!FindVolumeForPartition(disk, start, devicePath, kDevicePathUnits, nullptr)) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    char16_t letter = 0;
    KK_TRY(NeedDriveLetter(disk, start, devicePath, letter));

    char16_t interpreter[kInterpreterUnits] = {};
    KK_TRY(FindInterpreter(interpreter));
    char16_t commandLine[kCommandLineUnits];
    FormatCommandLine(letter, request, commandLine);
    return RunHidden(interpreter, commandLine);
}

}  // namespace

}  // namespace kk

KK_STATUS KK_CALL KkFormatPartition(int32_t diskNumber, uint64_t startOffset, const KkWideChar* fileSystem,
                                    const KkWideChar* label, int32_t quick)
{
    return kk::FormatPartition(static_cast<uint32_t>(diskNumber), startOffset,
                               {kk::FromCaller(fileSystem), kk::FromCaller(label), quick != 0});
}
