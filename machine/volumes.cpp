#include "machine/volumes.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "machine/layout_parser.h"
#include "machine/machine.h"
#include "machine/table_format.h"
#include "machine/text.h"
#include "machine/volume_device.h"

namespace machine {

namespace {

std::u16string LetterLink(char16_t letter)
{
    return std::u16string(u"\\??\\") + letter + u":";
}

bool GetsVolume(const kk::PartitionInformationEx& partition)
{
    if (partition.style == kk::WirePartitionStyle::Gpt) {
        return partition.gpt.partitionType != kReservedType;
    }
    const uint8_t type = partition.mbr.partitionType;
    return type != 0 && type != kProtectiveType && !IsExtendedContainer(type);
}

/// Neither hidden nor one that only the system uses.
bool IsForUsers(const kk::PartitionInformationEx& partition)
{
    constexpr uint64_t kNoDriveLetter = 1ull << 63;
    if (partition.style == kk::WirePartitionStyle::Gpt) {
        return partition.gpt.partitionType == kBasicDataType && (partition.gpt.attributes & kNoDriveLetter) == 0;
    }
    return partition.mbr.recognizedPartition != 0;
}

/// What the mount manager knows a basic volume by: the partition's identifier, or the disk's signature and the offset.
std::vector<uint8_t> UniqueIdOf(const Disk& disk, const kk::PartitionInformationEx& partition)
{
    std::vector<uint8_t> id;
    if (partition.style == kk::WirePartitionStyle::Gpt) {
        constexpr char kPrefix[] = "DMIO:ID:";
        id.assign(kPrefix, kPrefix + 8);
        const std::vector<uint8_t> guid = BytesOf(partition.gpt.partitionId);
        id.insert(id.end(), guid.begin(), guid.end());
        return id;
    }
    id = BytesOf(disk.CachedLayout().header.mbr.signature);
    const std::vector<uint8_t> offset = BytesOf(partition.startingOffset);
    id.insert(id.end(), offset.begin(), offset.end());
    return id;
}

kk::Guid MadeUpVolumeGuid(uint32_t number)
{
    return {0xB1A00000 + number, 0x2F3C, 0x11EE, {0x9D, 0x4E, 0x80, 0x6E, 0x6F, 0x6E, 0x69, 0x63}};
}

}  // namespace

std::shared_ptr<Volume> Volumes::Find(uint32_t diskNumber, uint64_t start) const
{
    const auto found = std::find_if(volumes_.begin(), volumes_.end(), [&](const std::shared_ptr<Volume>& volume) {
        const auto& extents = volume->Extents();
        return std::any_of(extents.begin(), extents.end(), [&](const Extent& extent) {
            return extent.disk->Number() == diskNumber && extent.start == start;
        });
    });
    return found == volumes_.end() ? nullptr : *found;
}

std::shared_ptr<Volume> Volumes::FindByLetter(char16_t letter) const
{
    const std::u16string wanted = UpperCase(std::u16string_view(&letter, 1));
    const auto found = std::find_if(volumes_.begin(), volumes_.end(), [&](const std::shared_ptr<Volume>& volume) {
        return volume->Letter() == wanted[0];
    });
    return found == volumes_.end() ? nullptr : *found;
}

std::shared_ptr<Volume> Volumes::FindByPath(std::u16string_view path) const
{
    if (path.ends_with(u'\\')) {
        path.remove_suffix(1);
    }
    const auto found = std::find_if(volumes_.begin(), volumes_.end(), [&](const std::shared_ptr<Volume>& volume) {
        const std::u16string link = volume->LinkName();
        return path.size() == link.size() && (path.starts_with(u"\\\\?\\") || path.starts_with(u"\\??\\")) &&
               EqualsIgnoreCase(path.substr(4), link.substr(4));
    });
    return found == volumes_.end() ? nullptr : *found;
}

void Volumes::Follow(const std::shared_ptr<Disk>& disk)
{
    std::vector<const kk::PartitionInformationEx*> partitions;
    for (const kk::PartitionInformationEx& partition : disk->CachedLayout().partitions) {
        if (GetsVolume(partition) && !IsHidden(disk->Number(), static_cast<uint64_t>(partition.startingOffset))) {
            partitions.push_back(&partition);
        }
    }
    const auto fits = [&](const Volume& volume, const kk::PartitionInformationEx& partition) {
        return volume.Extents().front().start == static_cast<uint64_t>(partition.startingOffset) &&
               volume.UniqueId() == UniqueIdOf(*disk, partition);
    };
    std::erase_if(arrivals_, [&](const Arrival& arrival) { return arrival.disk == disk; });
    for (const std::shared_ptr<Volume>& volume : std::vector(volumes_)) {
        if (volume->extents_.front().disk != disk) {
            continue;
        }
        const auto own = std::find_if(partitions.begin(), partitions.end(),
                                      [&](const auto* partition) { return fits(*volume, *partition); });
        if (own == partitions.end()) {
            Unregister(*volume);
        } else {
            volume->extents_.front().length = static_cast<uint64_t>((*own)->partitionLength);
            partitions.erase(own);
            if (std::exchange(volume->losesLetter_, false)) {
                RemoveLetter(*volume);
            }
        }
    }
    if (machine_.switches.diskIdentityCollisions && IdentityIsTaken(*disk)) {
        return;
    }
    for (const kk::PartitionInformationEx* const partition : partitions) {
        Announce(disk, *partition);
    }
}

void Volumes::FollowLength(const Disk& disk, const kk::PartitionInformationEx& partition)
{
    for (const std::shared_ptr<Volume>& volume : volumes_) {
        for (Extent& extent : volume->extents_) {
            if (extent.disk.get() == &disk && extent.start == static_cast<uint64_t>(partition.startingOffset)) {
                extent.length = static_cast<uint64_t>(partition.partitionLength);
            }
        }
    }
    for (Arrival& arrival : arrivals_) {
        if (arrival.disk.get() == &disk && arrival.partition.startingOffset == partition.startingOffset) {
            arrival.partition = partition;
        }
    }
}

void Volumes::Announce(const std::shared_ptr<Disk>& disk, const kk::PartitionInformationEx& partition)
{
    if (machine_.switches.volumeArrivalDelay == 0) {
        Arrive(disk, partition);
    } else {
        arrivals_.push_back({disk, partition, machine_.switches.volumeArrivalDelay});
    }
}

void Volumes::Arrive(const std::shared_ptr<Disk>& disk, const kk::PartitionInformationEx& partition)
{
    const uint32_t number = nextNumber_++;
    kk::Guid guid = MadeUpVolumeGuid(number);
    if (partition.style == kk::WirePartitionStyle::Gpt) {
        const kk::Guid& own = partition.gpt.partitionId;
        const bool taken = std::any_of(volumes_.begin(), volumes_.end(),
                                       [&](const std::shared_ptr<Volume>& volume) { return volume->Guid() == own; });
        guid = taken ? guid : own;
    }
    Extent extent = {disk, static_cast<uint64_t>(partition.startingOffset),
                     static_cast<uint64_t>(partition.partitionLength)};
    volumes_.push_back(std::make_shared<Volume>(number, std::move(extent), guid, UniqueIdOf(*disk, partition)));
    Register(volumes_.back());
    if (automaticLetters_ && disk->GetsDriveLetters() && IsForUsers(partition)) {
        GiveFirstFreeLetter(*volumes_.back());
    }
}

void Volumes::CountCall()
{
    for (Arrival& arrival : arrivals_) {
        --arrival.callsLeft;
        if (arrival.callsLeft == 0) {
            Arrive(arrival.disk, arrival.partition);
        }
    }
    std::erase_if(arrivals_, [](const Arrival& arrival) { return arrival.callsLeft == 0; });
}

void Volumes::Register(const std::shared_ptr<Volume>& volume)
{
    machine_.names.AddDevice(volume->DeviceName(), std::make_shared<VolumeDevice>(machine_.switches, volume));
    machine_.names.AddLink(volume->LinkName(), volume->DeviceName());
    if (volume->letter_) {
        machine_.names.AddLink(LetterLink(*volume->letter_), volume->DeviceName());
    }
}

void Volumes::Unregister(Volume& volume)
{
    machine_.names.RemoveDevice(volume.DeviceName());
    machine_.names.RemoveLink(volume.LinkName());
    RemoveLetter(volume);
    volume.present_ = false;
    std::erase_if(volumes_, [&](const std::shared_ptr<Volume>& other) { return other.get() == &volume; });
}

void Volumes::DropAllOf(uint32_t diskNumber)
{
    std::erase_if(arrivals_, [&](const Arrival& arrival) { return arrival.disk->Number() == diskNumber; });
    for (const std::shared_ptr<Volume>& volume : std::vector(volumes_)) {
        if (volume->Covers(diskNumber, 0, UINT64_MAX)) {
            Unregister(*volume);
        }
    }
}

bool Volumes::AssignLetter(Volume& volume, char16_t letter)
{
    const char16_t upper = UpperCase(std::u16string_view(&letter, 1))[0];
    if (volume.letter_ || upper < u'A' || upper > u'Z' || FindByLetter(upper) != nullptr) {
        return false;
    }
    volume.letter_ = upper;
    machine_.names.AddLink(LetterLink(upper), volume.DeviceName());
    return true;
}

void Volumes::GiveFirstFreeLetter(Volume& volume)
{
    char16_t letter = u'C';
    while (letter <= u'Z' && (machine_.drives.IsMapped(letter) || !AssignLetter(volume, letter))) {
        ++letter;
    }
}

void Volumes::RemoveLetter(Volume& volume)
{
    if (volume.letter_) {
        machine_.names.RemoveLink(LetterLink(*volume.letter_));
        volume.letter_.reset();
    }
}

void Volumes::SetNumber(Volume& volume, uint32_t number)
{
    const auto own = std::find_if(volumes_.begin(), volumes_.end(),
                                  [&](const std::shared_ptr<Volume>& other) { return other.get() == &volume; });
    machine_.names.RemoveDevice(volume.DeviceName());
    volume.number_ = number;
    nextNumber_ = std::max(nextNumber_, number + 1);
    Register(*own);
}

void Volumes::Hide(Volume& volume)
{
    const Extent& extent = volume.extents_.front();
    hidden_.emplace_back(extent.disk->Number(), extent.start);
    Unregister(volume);
}

bool Volumes::IsHidden(uint32_t diskNumber, uint64_t start) const
{
    return std::find(hidden_.begin(), hidden_.end(), std::pair(diskNumber, start)) != hidden_.end();
}

bool Volumes::IdentityIsTaken(const Disk& disk) const
{
    const kk::DriveLayoutInformationEx& own = disk.CachedLayout().header;
    return own.partitionStyle == kk::WirePartitionStyle::Gpt &&
           std::any_of(volumes_.begin(), volumes_.end(), [&](const std::shared_ptr<Volume>& volume) {
               const Disk& other = *volume->Extents().front().disk;
               const kk::DriveLayoutInformationEx& header = other.CachedLayout().header;
               return &other != &disk && header.partitionStyle == own.partitionStyle &&
                      header.gpt.diskId == own.gpt.diskId;
           });
}

}  // namespace machine
