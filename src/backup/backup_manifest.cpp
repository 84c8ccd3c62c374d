#include "backup/backup_manifest.h"

#include "backup/json_writer.h"
#include "backup/text_formats.h"
#include "core/checked_math.h"
#include "core/native_file.h"
#include "core/nt.h"
#include "core/text.h"
#include "disk/mount_points.h"
#include "disk/volume_lookup.h"

namespace kk {

namespace {

constexpr uint32_t kFormatVersion = 2;
constexpr size_t kSetIdBytes = 64;
constexpr size_t kNameBytes = 128;
constexpr size_t kDriveLetterBytes = 8;

/// The caller's identifier, cut to 63 bytes even inside a character, or a fresh one.
void ChooseSetId(const char* given, char (&output)[kSetIdBytes])
{
    if (given == nullptr || *given == 0) {
        char fresh[kBackupSetIdBytes];
        FormatBackupSetId(fresh);
        CopyBytes(output, fresh, sizeof(fresh));
        return;
    }
    size_t length = 0;
    while (length < kSetIdBytes - 1 && given[length] != 0) {
        output[length] = given[length];
        ++length;
    }
    output[length] = 0;
}

/// Converts to UTF-8, as much as fits with the terminator. What is no text becomes the replacement character; nothing
/// comes of a conversion that fails altogether.
template <size_t Capacity>
void ToUtf8(const char16_t* text, size_t units, char (&output)[Capacity])
{
    constexpr uint32_t limit = Capacity - 1;
    uint32_t length = 0;
    (void)RtlUnicodeToUTF8N(output, limit, &length, text, static_cast<uint32_t>(units * sizeof(char16_t)));
    output[Min(length, limit)] = 0;
}

template <size_t Capacity>
void LookUpDriveLetter(uint32_t disk, const PartitionEntry& partition, char (&output)[Capacity])
{
    output[0] = 0;
    char16_t devicePath[kDevicePathUnits];
    char16_t letter[kDriveLetterUnits];
    if (FindVolumeForPartition(disk, partition.start, devicePath, kDevicePathUnits, nullptr) &&
        GetDriveLetter(devicePath, letter)) {
        ToUtf8(letter, kDriveLetterUnits - 1, output);
    }
}

/// Looks for this very entry and not for its number, which hostile tables use twice.
uint64_t OffsetInImage(const PartitionEntry& partition, const BackupPlan& plan)
{
    for (const BackupPlanEntry& entry : plan) {
        if (entry.partition == &partition) {
            return entry.imageOffset;
        }
    }
    return partition.start;
}

void WritePartition(JsonWriter& json, uint32_t disk, const PartitionEntry& partition, bool present,
                    const BackupPlan& plan)
{
    char typeGuid[kGuidTextBytes];
    FormatGuidText(partition.typeGuid, typeGuid);
    char name[kNameBytes];
    ToUtf8(partition.name, TextLength(partition.name, kPartitionNameUnits), name);
    char driveLetter[kDriveLetterBytes];
    LookUpDriveLetter(disk, partition, driveLetter);

    json.BeginObject();
    json.UIntField("index", partition.number);
    json.UIntField("offset", present ? OffsetInImage(partition, plan) : partition.start);
    json.UIntField("originalOffset", partition.start);
    json.UIntField("length", partition.length);
    json.StringField("typeGuid", typeGuid);
    json.StringField("name", name);
    json.StringField("driveLetter", driveLetter);
    json.BoolField("present", present);
    json.EndObject();
}

void WritePartitions(JsonWriter& json, const BackupRequest& request, const DiskLayout& layout, const BackupPlan& plan)
{
    json.Key("partitions");
    json.BeginArray();
    for (const PartitionEntry& partition : layout.partitions) {
        const bool present = IsSelected(request, partition);
        if (present || !request.removeOmitted) {
            WritePartition(json, request.diskNumber, partition, present, plan);
        }
    }
    json.EndArray();
}

/// The order of the members is part of the format. So is, on purpose, that everything but MBR is called GPT and that
/// GUIDs are written for MBR disks too: readers find the same members in every manifest.
void WriteDocument(JsonWriter& json, const BackupRequest& request, const DiskLayout& layout, bool snapshotsUsed,
                   uint64_t virtualSize, const BackupPlan& plan)
{
    char setId[kSetIdBytes];
    ChooseSetId(request.backupSetId, setId);
    char timestamp[kTimestampBytes];
    FormatUtcTimestamp(timestamp);
    char diskGuid[kGuidTextBytes];
    FormatGuidText(layout.diskGuid, diskGuid);

    json.BeginObject();
    json.StringField("tool", "Kestrelkit");
    json.UIntField("formatVersion", kFormatVersion);
    json.StringField("backupTimeUtc", timestamp);
    json.UIntField("sourceDiskNumber", request.diskNumber);
    json.UIntField("sourceDiskSize", layout.diskSize);
    json.UIntField("sectorSize", layout.sectorSize);
    json.UIntField("virtualSize", virtualSize);
    json.StringField("partitionStyle", layout.style == PartitionStyle::Mbr ? "MBR" : "GPT");
    json.StringField("diskGuid", diskGuid);
    json.BoolField("usedVss", snapshotsUsed);
    json.BoolField("usedBlocksOnly", request.usedBlocksOnly);
    json.BoolField("compact", request.compact != 0);
    json.StringField("omittedMode", request.removeOmitted ? "remove" : "keepEmpty");
    json.StringField("backupSetId", setId);
    json.UIntField("setDiskIndex", request.setDiskIndex);
    json.UIntField("setDiskCount", request.setDiskCount);
    WritePartitions(json, request, layout, plan);
    json.EndObject();
    json.Finish();
}

/// A path too long for the buffer is cut before the ending, so that its manifest then does not lie beside the image.
constexpr size_t kManifestPathUnits = 600;
constexpr size_t kImagePathUnits = 590;

void FormatManifestPath(const char16_t* imagePath, char16_t (&output)[kManifestPathUnits])
{
    size_t position = 0;
    AppendText(output, kImagePathUnits + 1, position, imagePath);
    AppendText(output, kManifestPathUnits, position, u".json");
}

}  // namespace

void WriteBackupManifest(const BackupRequest& request, const DiskLayout& layout, bool snapshotsUsed,
                         uint64_t virtualSize, const BackupPlan& plan)
{
    JsonWriter json;
    WriteDocument(json, request, layout, snapshotsUsed, virtualSize, plan);
    char16_t path[kManifestPathUnits];
    FormatManifestPath(request.imagePath, path);
    (void)WriteNewFile(path, json.Text(), static_cast<uint32_t>(json.TextLength()));
}

}  // namespace kk
