#include "machine/disk.h"

#include <algorithm>
#include <set>
#include <stdexcept>
#include <utility>

#include "machine/machine.h"
#include "machine/table_editor.h"

namespace machine {

namespace {

/// What reads and writes of the driver have in common: whole sectors inside the disk.
Status CheckTransfer(const Disk& disk, uint64_t offset, uint64_t length)
{
    if (!disk.IsPresent()) {
        return kNoSuchDevice;
    }
    if (offset % disk.SectorSize() != 0 || length % disk.SectorSize() != 0) {
        return kInvalidParameter;
    }
    if (disk.behaviour.noMedia) {
        return kNoMediaInDevice;
    }
    return offset > disk.Size() || length > disk.Size() - offset ? kNonexistentSector : kSuccess;
}

}  // namespace

/// Tells the observers of every write before it happens, whoever writes.
class Disk::ObservedStorage final : public Storage {
public:
    explicit ObservedStorage(Disk& disk) : disk_(disk) {}

    uint64_t Size() const override { return disk_.storage_->Size(); }
    bool Read(uint64_t offset, std::span<uint8_t> into) override { return disk_.storage_->Read(offset, into); }
    bool Flush() override { return disk_.storage_->Flush(); }
    std::vector<Stretch> DataIn(uint64_t offset, uint64_t length) const override
    {
        return disk_.storage_->DataIn(offset, length);
    }
    bool Write(uint64_t offset, std::span<const uint8_t> from) override
    {
        if (!Holds(offset, from.size())) {
            return false;
        }
        for (const auto& observer : disk_.observers_) {
            observer.second(offset, from.size());
        }
        return disk_.storage_->Write(offset, from);
    }

private:
    Disk& disk_;
};

Disk::Disk(Machine& machine, uint32_t number, std::unique_ptr<Storage> storage, const DiskOptions& options)
    : machine_(machine), number_(number), sectorSize_(options.sectorSize), getsDriveLetters_(!options.noDriveLetters),
      size_(storage->Size()), storage_(std::move(storage))
{
    behaviour.readOnly = options.readOnly;
}

Status Disk::Read(uint64_t offset, std::span<uint8_t> into)
{
    if (const Status status = CheckTransfer(*this, offset, into.size()); status != kSuccess) {
        return status;
    }
    return storage_->Read(offset, into) ? kSuccess : kIoDeviceError;
}

Status Disk::Write(uint64_t offset, std::span<const uint8_t> from)
{
    if (const Status status = CheckTransfer(*this, offset, from.size()); status != kSuccess) {
        return status;
    }
    if (behaviour.readOnly) {
        return kMediaWriteProtected;
    }
    return ObservedStorage(*this).Write(offset, from) ? kSuccess : kIoDeviceError;
}

bool Disk::Flush()
{
    return IsPresent() && storage_->Flush();
}

bool Disk::ReadRaw(uint64_t offset, std::span<uint8_t> into)
{
    return IsPresent() && !behaviour.noMedia && storage_->Read(offset, into);
}

Disk& Disk::Rescan()
{
    const Layout before = std::exchange(layout_, ParseLayout(*storage_, sectorSize_));
    NumberPartitions(before);
    machine_.volumes.Follow(machine_.ShareDisk(number_));
    return *this;
}

void Disk::NumberPartitions(const Layout& before)
{
    std::map<uint64_t, uint32_t> known = partitionNumbers_;
    for (const kk::PartitionInformationEx& partition : before.partitions) {
        if (partition.partitionNumber != 0) {
            known.emplace(static_cast<uint64_t>(partition.startingOffset), partition.partitionNumber);
        }
    }
    std::set<uint32_t> used;
    std::vector<kk::PartitionInformationEx*> newcomers;
    for (kk::PartitionInformationEx& partition : layout_.partitions) {
        if (partition.partitionNumber == 0) {
            continue;
        }
        const auto number = known.find(static_cast<uint64_t>(partition.startingOffset));
        if (number == known.end()) {
            newcomers.push_back(&partition);
        } else {
            partition.partitionNumber = number->second;
            used.insert(number->second);
        }
    }
    uint32_t lowest = 1;
    for (kk::PartitionInformationEx* const partition : newcomers) {
        while (used.contains(lowest)) {
            ++lowest;
        }
        partition->partitionNumber = lowest++;
    }
}

Status Disk::GrowPartition(uint32_t number, int64_t bytes)
{
    if (!IsPresent()) {
        return kNoSuchDevice;
    }
    if (behaviour.noMedia) {
        return kNoMediaInDevice;
    }
    if (behaviour.readOnly) {
        return kMediaWriteProtected;
    }
    ObservedStorage storage(*this);
    const Status status = ResizePartition(storage, sectorSize_, layout_, number, bytes);
    if (status == kSuccess) {
        const auto& all = layout_.partitions;
        machine_.volumes.FollowLength(*this, *std::find_if(all.begin(), all.end(), [number](const auto& partition) {
            return partition.partitionNumber == number;
        }));
    }
    return status;
}

Disk& Disk::SetPartitionNumber(uint64_t start, uint32_t number)
{
    partitionNumbers_[start] = number;
    return Rescan();
}

std::vector<uint8_t> Disk::ReadBytes(uint64_t offset, uint64_t length)
{
    std::vector<uint8_t> bytes(length);
    if (!storage_->Read(offset, bytes)) {
        throw std::out_of_range("reading past the end of the disk");
    }
    return bytes;
}

Disk& Disk::WriteBytes(uint64_t offset, std::span<const uint8_t> bytes)
{
    if (!ObservedStorage(*this).Write(offset, bytes)) {
        throw std::out_of_range("writing past the end of the disk");
    }
    return *this;
}

Disk& Disk::FlipBit(uint64_t offset, uint32_t bit)
{
    std::vector<uint8_t> byte = ReadBytes(offset, 1);
    byte[0] = static_cast<uint8_t>(byte[0] ^ (1u << bit));
    return WriteBytes(offset, byte);
}

Disk& Disk::Gpt(const GptTable& table)
{
    ObservedStorage storage(*this);
    WriteGptTable(storage, sectorSize_, table);
    return Rescan();
}

Disk& Disk::Mbr(const MbrTable& table)
{
    ObservedStorage storage(*this);
    WriteMbrTable(storage, sectorSize_, table);
    return Rescan();
}

Disk& Disk::Format(uint64_t start, uint64_t length, FileSystem fileSystem, const FormatOptions& options)
{
    ObservedStorage storage(*this);
    FormatRegion(storage, sectorSize_, start, length, fileSystem, options);
    return *this;
}

Disk& Disk::ImportFile(uint64_t offset, const std::string& hostPath)
{
    ObservedStorage storage(*this);
    ImportHostFile(storage, offset, hostPath);
    return *this;
}

Disk& Disk::ExportFile(uint64_t offset, uint64_t length, const std::string& hostPath)
{
    ExportHostFile(*storage_, offset, length, hostPath);
    return *this;
}

uint64_t Disk::AddWriteObserver(WriteObserver observer)
{
    observers_.emplace(nextObserver_, std::move(observer));
    return nextObserver_++;
}

void Disk::RemoveWriteObserver(uint64_t token)
{
    observers_.erase(token);
}

}  // namespace machine
