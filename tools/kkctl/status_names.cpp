#include "status_names.h"

namespace kkctl {

namespace {

struct StatusName {
    uint32_t value;
    const char* name;
    const char* meaning;
};

constexpr uint32_t Value(KK_STATUS status)
{
    return static_cast<uint32_t>(status);
}

/// The library's own statuses under the names of its header, then the system's.
constexpr StatusName kStatusNames[] = {
    {Value(KK_STATUS_SUCCESS), "KK_STATUS_SUCCESS", "success"},
    {Value(KK_STATUS_UNSUCCESSFUL), "KK_STATUS_UNSUCCESSFUL",
     "a write made no progress, a format failed, or an image could not be created, attached or detached"},
    {Value(KK_STATUS_INVALID_PARAMETER), "KK_STATUS_INVALID_PARAMETER",
     "nothing is where a partition or volume was named, a size does not fit, or an argument is not valid"},
    {Value(KK_STATUS_END_OF_FILE), "KK_STATUS_END_OF_FILE", "a read ended before the wanted bytes were there"},
    {Value(KK_STATUS_NO_MEDIA_IN_DEVICE), "KK_STATUS_NO_MEDIA_IN_DEVICE",
     "there is no volume to mount, no drive letter for it, or no medium in the drive"},
    {Value(KK_STATUS_NO_MEMORY), "KK_STATUS_NO_MEMORY", "memory ran out"},
    {Value(KK_STATUS_BUFFER_TOO_SMALL), "KK_STATUS_BUFFER_TOO_SMALL", "there is not enough room for the wanted size"},
    {Value(KK_STATUS_DISK_FULL), "KK_STATUS_DISK_FULL",
     "a partition table has no unused entry, or there is no room for the data"},
    {Value(KK_STATUS_NOT_SUPPORTED), "KK_STATUS_NOT_SUPPORTED",
     "the operation does not apply, or the device does not support it"},
    {Value(KK_STATUS_REGISTRY_CORRUPT), "KK_STATUS_REGISTRY_CORRUPT",
     "the partition table or the image is damaged, or is none at all"},
    {Value(KK_STATUS_NOT_FOUND), "KK_STATUS_NOT_FOUND", "a system library or one of its functions is missing"},
    {Value(KK_E_FILE_NOT_FOUND), "KK_E_FILE_NOT_FOUND",
     "the virtual-disk service did not open the file: it is missing, no image, in use or attached already"},
    {Value(KK_E_ACCESSDENIED), "KK_E_ACCESSDENIED", "access is denied, or the system refused the mount point"},

    {0x80000005, "STATUS_BUFFER_OVERFLOW", "the answer did not fit its buffer"},
    {0x80000011, "STATUS_DEVICE_BUSY", "the device is busy"},
    {0x80000016, "STATUS_VERIFY_REQUIRED", "the medium may have been changed"},
    {0xC0000002, "STATUS_NOT_IMPLEMENTED", "the system does not implement this request"},
    {0xC0000003, "STATUS_INVALID_INFO_CLASS", "the object does not know this kind of information"},
    {0xC0000004, "STATUS_INFO_LENGTH_MISMATCH", "a buffer has the wrong length"},
    {0xC0000005, "STATUS_ACCESS_VIOLATION", "memory was addressed that is not there"},
    {0xC0000008, "STATUS_INVALID_HANDLE", "a handle is not valid"},
    {0xC000000E, "STATUS_NO_SUCH_DEVICE", "the device does not exist"},
    {0xC000000F, "STATUS_NO_SUCH_FILE", "the file does not exist"},
    {0xC0000010, "STATUS_INVALID_DEVICE_REQUEST", "the device does not take this request"},
    {0xC0000012, "STATUS_WRONG_VOLUME", "another volume is in the drive"},
    {0xC0000014, "STATUS_UNRECOGNIZED_MEDIA", "the medium is not formatted in a known way"},
    {0xC0000015, "STATUS_NONEXISTENT_SECTOR", "the sector lies past the end of the disk"},
    {0xC0000021, "STATUS_ALREADY_COMMITTED", "data lies in the part that is to go"},
    {0xC0000022, "STATUS_ACCESS_DENIED", "access is denied; disks and volumes need an elevated process"},
    {0xC0000024, "STATUS_OBJECT_TYPE_MISMATCH", "the name belongs to an object of another kind"},
    {0xC000002A, "STATUS_NOT_LOCKED", "the volume is not locked"},
    {0xC0000032, "STATUS_DISK_CORRUPT_ERROR", "the file system is damaged"},
    {0xC0000033, "STATUS_OBJECT_NAME_INVALID", "the name is not valid"},
    {0xC0000034, "STATUS_OBJECT_NAME_NOT_FOUND", "there is no disk, volume or file of this name"},
    {0xC0000035, "STATUS_OBJECT_NAME_COLLISION", "a file of this name exists already"},
    {0xC000003A, "STATUS_OBJECT_PATH_NOT_FOUND", "the folder does not exist"},
    {0xC000003B, "STATUS_OBJECT_PATH_SYNTAX_BAD", "the path is not well-formed"},
    {0xC000003E, "STATUS_DATA_ERROR", "the data could not be read from the device"},
    {0xC000003F, "STATUS_CRC_ERROR", "the data has a checksum error"},
    {0xC0000043, "STATUS_SHARING_VIOLATION", "the file or device is in use by another program"},
    {0xC0000056, "STATUS_DELETE_PENDING", "the file is about to be deleted"},
    {0xC0000060, "STATUS_NO_SUCH_PRIVILEGE", "the system does not know the privilege"},
    {0xC0000061, "STATUS_PRIVILEGE_NOT_HELD", "the process lacks a privilege, such as the one to shut the system down"},
    {0xC000007A, "STATUS_PROCEDURE_NOT_FOUND", "a system library lacks a function"},
    {0xC000007C, "STATUS_NO_TOKEN", "the thread acts for nobody else"},
    {0xC0000098, "STATUS_FILE_INVALID", "the volume of an open file was replaced"},
    {0xC000009A, "STATUS_INSUFFICIENT_RESOURCES", "the system ran out of resources"},
    {0xC000009C, "STATUS_DEVICE_DATA_ERROR", "the device reported a bad sector"},
    {0xC000009D, "STATUS_DEVICE_NOT_CONNECTED", "the device is not connected"},
    {0xC00000A2, "STATUS_MEDIA_WRITE_PROTECTED", "the disk is write-protected"},
    {0xC00000A3, "STATUS_DEVICE_NOT_READY", "the device is not ready"},
    {0xC00000B5, "STATUS_IO_TIMEOUT", "the device did not answer in time"},
    {0xC00000BA, "STATUS_FILE_IS_A_DIRECTORY", "the name is that of a folder"},
    {0xC00000C0, "STATUS_DEVICE_DOES_NOT_EXIST", "the device does not exist any more"},
    {0xC00000CB, "STATUS_BAD_DEVICE_TYPE", "the device is of the wrong kind"},
    {0xC00000E9, "STATUS_UNEXPECTED_IO_ERROR", "the device answered in a way that it should not"},
    {0xC0000101, "STATUS_DIRECTORY_NOT_EMPTY", "the folder is not empty"},
    {0xC0000102, "STATUS_FILE_CORRUPT_ERROR", "the file or folder is damaged"},
    {0xC0000103, "STATUS_NOT_A_DIRECTORY", "the name is not that of a folder"},
    {0xC0000120, "STATUS_CANCELLED", "the request was cancelled"},
    {0xC000012D, "STATUS_COMMITMENT_LIMIT", "the system ran out of virtual memory"},
    {0xC0000135, "STATUS_DLL_NOT_FOUND", "a system library is missing"},
    {0xC0000139, "STATUS_ENTRYPOINT_NOT_FOUND", "a system library lacks a function"},
    {0xC000014F, "STATUS_UNRECOGNIZED_VOLUME", "the volume has no file system that the system knows"},
    {0xC0000185, "STATUS_IO_DEVICE_ERROR", "the device reported an error"},
    {0xC0000186, "STATUS_DEVICE_PROTOCOL_ERROR", "the device does not keep to its protocol"},
    {0xC000026E, "STATUS_VOLUME_DISMOUNTED", "the volume is dismounted"},
    {0xC000029C, "STATUS_VOLUME_NOT_UPGRADED", "the volume has an outdated format"},
    {0xC00002FE, "STATUS_SHUTDOWN_IN_PROGRESS", "the system is shutting down already"},
    {0xC0000427, "STATUS_FILE_SYSTEM_LIMITATION", "the file system cannot do this"},
    {0xC0210000, "STATUS_FVE_LOCKED_VOLUME", "the volume is encrypted and locked"},

    {0x80004001, "E_NOTIMPL", "the system does not implement this request"},
    {0x80070001, "HRESULT of ERROR_INVALID_FUNCTION",
     "the request is not known, or the virtual-disk service gave no handle"},
    {0x80070003, "HRESULT of ERROR_PATH_NOT_FOUND", "the folder does not exist"},
    {0x8007000E, "HRESULT of ERROR_OUTOFMEMORY", "memory ran out"},
    {0x80070013, "HRESULT of ERROR_WRITE_PROTECT", "the disk or file is write-protected"},
    {0x80070015, "HRESULT of ERROR_NOT_READY", "the device is not ready, or there is no such virtual disk"},
    {0x80070020, "HRESULT of ERROR_SHARING_VIOLATION", "the file is in use by another program"},
    {0x80070021, "HRESULT of ERROR_LOCK_VIOLATION", "another program has locked a part of the file"},
    {0x80070032, "HRESULT of ERROR_NOT_SUPPORTED", "the system does not support this request"},
    {0x80070037, "HRESULT of ERROR_DEV_NOT_EXIST", "the virtual disk is not attached"},
    {0x80070050, "HRESULT of ERROR_FILE_EXISTS", "the file exists already"},
    {0x80070057, "HRESULT of ERROR_INVALID_PARAMETER", "an argument is not valid"},
    {0x80070070, "HRESULT of ERROR_DISK_FULL", "the disk is full"},
    {0x80070078, "HRESULT of ERROR_CALL_NOT_IMPLEMENTED", "the system does not implement this request"},
    {0x8007007A, "HRESULT of ERROR_INSUFFICIENT_BUFFER", "a buffer is too small"},
    {0x80070091, "HRESULT of ERROR_DIR_NOT_EMPTY", "the folder is not empty"},
    {0x800700AA, "HRESULT of ERROR_BUSY", "the file or device is in use"},
    {0x800700B7, "HRESULT of ERROR_ALREADY_EXISTS", "the file exists already"},
    {0x80070522, "HRESULT of ERROR_PRIVILEGE_NOT_HELD", "the process lacks a privilege"},
    {0x80070570, "HRESULT of ERROR_FILE_CORRUPT", "the file is damaged"},
    {0xC03A0004, "ERROR_VHD_FORMAT_UNKNOWN", "the file is not in a known virtual-disk format"},
    {0xC03A0014, "ERROR_VIRTDISK_PROVIDER_NOT_FOUND", "the system has no support for this kind of virtual disk"},
    {0xC03A0015, "ERROR_VIRTDISK_NOT_VIRTUAL_DISK", "the disk is not a virtual disk"},
};

constexpr bool AllDifferent()
{
    for (const StatusName& one : kStatusNames) {
        for (const StatusName& other : kStatusNames) {
            if (&one != &other && one.value == other.value) {
                return false;
            }
        }
    }
    return true;
}
static_assert(AllDifferent(), "a status has one name");

/// What is known of a result that has none of the names above.
std::string DescribeUnnamed(uint32_t value)
{
    constexpr uint32_t kWin32Results = 0x80070000;
    constexpr uint32_t kVirtualDiskErrors = 0xC03A0000;
    constexpr uint32_t kLastVirtualDiskError = 0x30;
    if ((value >> 31) == 0) {
        return "(success)";
    }
    if ((value & 0xFFFF0000) != kWin32Results) {
        return "(a status of the system without a name here)";
    }
    const uint32_t error = value & 0xFFFF;
    const std::string decimal = std::to_string(error);
    std::string text = "(system error " + decimal + ", which \"net helpmsg " + decimal + "\" explains";
    if (error <= kLastVirtualDiskError) {
        text += "; or " + Status{static_cast<KK_STATUS>(kVirtualDiskErrors | error)}.Text() +
                " of the virtual-disk service, cut to 16 bits";
    }
    return text + ")";
}

}  // namespace

std::string DescribeStatus(Status status)
{
    const uint32_t value = Value(status.code);
    for (const StatusName& known : kStatusNames) {
        if (known.value == value) {
            return status.Text() + " " + known.name + " (" + known.meaning + ")";
        }
    }
    return status.Text() + " " + DescribeUnnamed(value);
}

}  // namespace kkctl
