#include "disk/disk_layout.h"

#include "core/byte_buffer.h"
#include "core/checked_math.h"
#include "core/file_opener.h"
#include "core/status.h"
#include "core/text.h"

namespace kk {

namespace {

/// The layout's head and 129 partitions: a full GPT of the usual size is read at once.
constexpr uint64_t kFirstLayoutBytes = 18624;
constexpr int kLayoutAttempts = 6;
static_assert(kFirstLayoutBytes == sizeof(DriveLayoutInformationEx) + 129 * sizeof(PartitionInformationEx));

void ReadGeometry(DeviceFile& device, DiskLayout& layout)
{
    DiskGeometryEx geometry = {};
    if (Failed(device.Control(kIoctlDiskGetDriveGeometryEx, nullptr, 0, &geometry, sizeof(geometry), nullptr))) {
        return;
    }
    layout.diskSize = static_cast<uint64_t>(geometry.diskSize);
    layout.sectorSize = SectorSizeOrDefault(geometry.bytesPerSector);
}

/// Asks with ever larger buffers, whatever the failure: drivers name "too small" in several ways.
KK_STATUS RequestLayout(DeviceFile& device, ByteBuffer& answer, uint32_t& returned)
{
    KK_STATUS status = KK_STATUS_SUCCESS;
    uint64_t bytes = kFirstLayoutBytes;
    for (int attempt = 0; attempt < kLayoutAttempts; ++attempt, bytes *= 2) {
        if (!answer.Resize(bytes)) {
            return KK_STATUS_NO_MEMORY;
        }
        status = device.Control(kIoctlDiskGetDriveLayoutEx, nullptr, 0, answer.Data(), static_cast<uint32_t>(bytes),
                                &returned);
        if (!Failed(status)) {
            return KK_STATUS_SUCCESS;
        }
    }
    return status;
}

/// Entries that the answer really holds, however many it claims.
uint32_t EntriesInAnswer(const DriveLayoutInformationEx& head, uint64_t answerBytes)
{
    const uint64_t room = (answerBytes - sizeof(head)) / sizeof(PartitionInformationEx);
    return static_cast<uint32_t>(Min(room, uint64_t{head.partitionCount}));
}

bool IsPartition(const PartitionInformationEx& entry, PartitionStyle style)
{
    if (style == PartitionStyle::Gpt) {
        return entry.gpt.partitionType != Guid{};
    }
    const uint8_t type = entry.mbr.partitionType;
    constexpr uint8_t unused = 0x00;
    constexpr uint8_t extended = 0x05;
    constexpr uint8_t extendedLba = 0x0F;
    return type != unused && type != extended && type != extendedLba;
}

PartitionEntry ToPartitionEntry(const PartitionInformationEx& entry, PartitionStyle style)
{
    PartitionEntry partition = {};
    partition.number = entry.partitionNumber;
    partition.start = static_cast<uint64_t>(entry.startingOffset);
    partition.length = static_cast<uint64_t>(entry.partitionLength);
    if (style == PartitionStyle::Gpt) {
        partition.typeGuid = entry.gpt.partitionType;
        partition.idGuid = entry.gpt.partitionId;
        CopyBytes(partition.name, entry.gpt.name, sizeof(partition.name));
    } else {
        partition.mbrType = entry.mbr.partitionType;
    }
    return partition;
}

/// An answer without a whole head tells of no table.
KK_STATUS TakeAnswer(const ByteBuffer& answer, uint32_t returned, DiskLayout& layout)
{
    const uint64_t answerBytes = Min(uint64_t{returned}, answer.Length());
    const auto& head = *reinterpret_cast<const DriveLayoutInformationEx*>(answer.Data());
    if (answerBytes < sizeof(head)) {
        layout.style = PartitionStyle::Raw;
        return KK_STATUS_SUCCESS;
    }
    switch (head.partitionStyle) {
    case WirePartitionStyle::Mbr:
        layout.style = PartitionStyle::Mbr;
        break;
    case WirePartitionStyle::Gpt:
        layout.style = PartitionStyle::Gpt;
        layout.diskGuid = head.gpt.diskId;
        break;
    default:
        layout.style = PartitionStyle::Raw;
        return KK_STATUS_SUCCESS;
    }

    const auto* const entries = reinterpret_cast<const PartitionInformationEx*>(answer.Data() + sizeof(head));
    const uint32_t count = EntriesInAnswer(head, answerBytes);
    for (uint32_t i = 0; i < count; ++i) {
        if (IsPartition(entries[i], layout.style) &&
            !layout.partitions.Append(ToPartitionEntry(entries[i], layout.style))) {
            return KK_STATUS_NO_MEMORY;
        }
    }
    return KK_STATUS_SUCCESS;
}

}  // namespace

void FormatPhysicalDrivePath(uint32_t disk, char16_t* buffer, size_t capacity)
{
    size_t position = 0;
    AppendText(buffer, capacity, position, u"\\??\\PhysicalDrive");
    AppendDecimal(buffer, capacity, position, disk);
}

KK_STATUS ReadDiskLayout(uint32_t disk, DiskLayout& layout)
{
    DevicePtr device;
    KK_TRY(OpenPhysicalDrive(disk, false, device));

    ReadGeometry(*device, layout);
    ByteBuffer answer;
    uint32_t returned = 0;
    KK_TRY(RequestLayout(*device, answer, returned));
    device.Reset();
    return TakeAnswer(answer, returned, layout);
}

KK_STATUS ReadPartitionedLayout(uint32_t disk, DiskLayout& layout)
{
    KK_TRY(ReadDiskLayout(disk, layout));
    return layout.style == PartitionStyle::Raw ? KK_STATUS_NOT_SUPPORTED : KK_STATUS_SUCCESS;
}

const PartitionEntry* FindPartition(const DiskLayout& layout, uint64_t start)
{
    for (const PartitionEntry& partition : layout.partitions) {
        if (partition.start == start) {
            return &partition;
        }
    }
    return nullptr;
}

KK_STATUS OpenPhysicalDrive(uint32_t disk, bool writable, DevicePtr& drive)
{
    char16_t path[kDevicePathUnits];
    FormatPhysicalDrivePath(disk, path, kDevicePathUnits);
    return OpenDevice(path, writable, drive);
}

}  // namespace kk
