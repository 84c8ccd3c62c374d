#include "disk/mount_points.h"

#include "core/byte_buffer.h"
#include "core/checked_math.h"
#include "core/file_opener.h"
#include "core/status.h"
#include "core/text.h"
#include "disk/mount_manager.h"

namespace kk {

namespace {

constexpr uint64_t kFirstTableBytes = 16384;
constexpr int kTableAttempts = 4;

struct CountedName {
    WideText text;
    size_t length;  // units
};

struct MountPoint {
    CountedName link;
    CountedName device;
};

/// The mount manager's whole table, read afresh for each lookup.
class MountPointTable {
public:
    [[nodiscard]] bool Read();
    [[nodiscard]] uint64_t Count() const;
    /// False for an entry whose names do not lie inside the answer.
    [[nodiscard]] bool Entry(uint64_t index, MountPoint& point) const;

private:
    [[nodiscard]] bool Name(uint32_t offset, uint16_t bytes, CountedName& name) const;

    ByteBuffer answer_;
    uint64_t filled_ = 0;  // bytes of the answer that the mount manager wrote
};

bool MountPointTable::Read()
{
    DevicePtr manager;
    if (Failed(OpenDevice(kMountManagerDevice, false, manager))) {
        return false;
    }
    uint64_t bytes = kFirstTableBytes;
    for (int attempt = 0; attempt < kTableAttempts; ++attempt) {
        if (!answer_.Resize(bytes)) {
            return false;
        }
        const MountPointRecord everything = {};
        uint32_t returned = 0;
        const KK_STATUS status = manager->Control(kIoctlMountmgrQueryPoints, &everything, sizeof(everything),
                                                  answer_.Data(), static_cast<uint32_t>(bytes), &returned);
        if (status != kStatusBufferOverflow) {
            filled_ = Min(uint64_t{returned}, bytes);
            return !Failed(status);
        }
        // Never less than before: the size in a partial answer is not ours to trust.
        bytes = Max(bytes, uint64_t{LoadUnaligned<MountPointsHeader>(answer_.Data()).size});
    }
    return false;
}

uint64_t MountPointTable::Count() const
{
    if (filled_ < sizeof(MountPointsHeader)) {
        return 0;
    }
    const uint64_t room = (filled_ - sizeof(MountPointsHeader)) / sizeof(MountPointRecord);
    return Min(room, uint64_t{LoadUnaligned<MountPointsHeader>(answer_.Data()).numberOfMountPoints});
}

bool MountPointTable::Name(uint32_t offset, uint16_t bytes, CountedName& name) const
{
    if (uint64_t{offset} + bytes > filled_) {
        return false;
    }
    name = {WideText(answer_.Data() + offset), bytes / sizeof(char16_t)};
    return true;
}

bool MountPointTable::Entry(uint64_t index, MountPoint& point) const
{
    const auto record =
        LoadUnaligned<MountPointRecord>(answer_.Data() + sizeof(MountPointsHeader) + index * sizeof(MountPointRecord));
    return Name(record.symbolicLinkNameOffset, record.symbolicLinkNameLength, point.link) &&
           Name(record.deviceNameOffset, record.deviceNameLength, point.device);
}

bool IsVolumeGuidLink(const CountedName& link)
{
    constexpr char16_t prefix[] = u"\\??\\Volume{";
    constexpr size_t length = sizeof(prefix) / sizeof(char16_t) - 1;
    return link.length >= length && NameEqualsIgnoreCase(link.text, prefix, length);
}

bool IsDriveLetterLink(const CountedName& link)
{
    constexpr char16_t prefix[] = u"\\DosDevices\\";
    constexpr size_t length = sizeof(prefix) / sizeof(char16_t) - 1;
    return link.length == length + 2 && NameEqualsIgnoreCase(link.text, prefix, length) &&
           link.text[length + 1] == u':';
}

/// The first link of the volume `deviceName` that `isWanted` accepts. The link's text lives in `table`.
bool FindLink(const MountPointTable& table, const char16_t* deviceName, bool (*isWanted)(const CountedName&),
              CountedName& link)
{
    const size_t nameLength = TextLength(deviceName);
    const uint64_t count = table.Count();
    for (uint64_t i = 0; i < count; ++i) {
        MountPoint point = {{nullptr, 0}, {nullptr, 0}};
        if (table.Entry(i, point) && point.device.length == nameLength &&
            NameEqualsIgnoreCase(point.device.text, deviceName, nameLength) && isWanted(point.link)) {
            link = point.link;
            return true;
        }
    }
    return false;
}

char16_t FoldCase(char16_t unit)
{
    return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit - u'A' + u'a') : unit;
}

}  // namespace

bool NameEqualsIgnoreCase(WideText a, WideText b, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        if (FoldCase(a[i]) != FoldCase(b[i])) {
            return false;
        }
    }
    return true;
}

void GetVolumeGuidPath(const char16_t* deviceName, char16_t* output, size_t capacity)
{
    CopyText(output, capacity, u"");
    MountPointTable table;
    CountedName link = {nullptr, 0};
    if (!table.Read() || !FindLink(table, deviceName, IsVolumeGuidLink, link)) {
        return;
    }
    size_t position = 0;
    AppendText(output, capacity, position, u"\\\\?\\");
    constexpr size_t nativePrefixUnits = 4;
    for (size_t i = nativePrefixUnits; i < link.length; ++i) {
        AppendUnit(output, capacity, position, link.text[i]);
    }
    AppendUnit(output, capacity, position, u'\\');
}

bool GetDriveLetter(const char16_t* deviceName, char16_t (&output)[kDriveLetterUnits])
{
    output[0] = 0;
    MountPointTable table;
    CountedName link = {nullptr, 0};
    if (!table.Read() || !FindLink(table, deviceName, IsDriveLetterLink, link)) {
        return false;
    }
    output[0] = link.text[link.length - 2];
    output[1] = u':';
    output[2] = 0;
    return true;
}

}  // namespace kk
