#include "machine/machine.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "disk/mount_manager.h"
#include "machine/disk_device.h"
#include "machine/kernel32.h"
#include "machine/text.h"

namespace machine {

namespace {

std::atomic<Machine*> theMachine = nullptr;

std::u16string DriveName(uint32_t number)
{
    return u"\\??\\PhysicalDrive" + Utf16(std::to_string(number));
}

}  // namespace

Machine::Machine()
    : heap([this](const std::string& breach) { Report(breach); }), names(drives), volumes(*this),
      mountManager(std::make_shared<MountManager>(volumes)), processes(*this), processBlock_(&heap),
      creatorsBlock_(processBlock_)
{
    if (theMachine != nullptr) {
        Report("a second machine was made while another exists");
    }
    theMachine = this;
    names.AddDevice(kk::kMountManagerDevice, mountManager);
    names.AddLink(u"\\??\\MountPointManager", kk::kMountManagerDevice);
    AddKernel32(modules);
}

Machine::~Machine()
{
    for (const std::string& imbalance : Imbalances()) {
        Report(imbalance);
    }
    theMachine = nullptr;
}

Machine& Machine::Current()
{
    Machine* const machine = theMachine;
    if (machine == nullptr) {
        std::fputs("a native call was made while there is no machine\n", stderr);
        std::abort();
    }
    return *machine;
}

void Machine::Report(const std::string& breach) const
{
    if (failureHandler_) {
        failureHandler_(breach);
        return;
    }
    std::fprintf(stderr, "machine: %s\n", breach.c_str());
    std::abort();
}

std::vector<std::string> Machine::Imbalances() const
{
    std::vector<std::string> all = handles.OpenNames();
    const std::vector<std::string> blocks = heap.LiveBlockNames();
    all.insert(all.end(), blocks.begin(), blocks.end());
    for (const BalanceCheck& check : balanceChecks_) {
        const std::vector<std::string> more = check();
        all.insert(all.end(), more.begin(), more.end());
    }
    return all;
}

Machine& Machine::Strict()
{
    switches.ntfsBoundary = true;
    switches.mountedWriteProtection = true;
    switches.shrinkMovesNothing = true;
    switches.volumeArrivalDelay = 8;
    switches.minimumVirtualDiskSize = true;
    switches.diskIdentityCollisions = true;
    switches.bitmapRoundingUnit = 32768;
    random.SetProcessWideTable(true);
    return *this;
}

Disk& Machine::AddDisk(uint64_t sizeBytes, const DiskOptions& options)
{
    return AddDisk(std::make_unique<MemoryStorage>(sizeBytes), options);
}

Disk& Machine::AddDisk(std::unique_ptr<Storage> storage, const DiskOptions& options)
{
    const uint32_t number = options.number.value_or(LowestFreeDiskNumber());
    if (disks_.contains(number)) {
        throw std::invalid_argument("the disk number is taken");
    }
    const auto disk = std::make_shared<Disk>(*this, number, std::move(storage), options);
    disks_.emplace(number, disk);
    names.AddDevice(DriveName(number), std::make_shared<DiskDevice>(*this, disk));
    return disk->Rescan();
}

Disk& Machine::AddDiskFile(const std::string& hostPath, const DiskOptions& options)
{
    const auto mode = options.readOnly ? FileStorage::Mode::ReadOnly : FileStorage::Mode::ReadWrite;
    return AddDisk(std::make_unique<FileStorage>(hostPath, mode), options);
}

void Machine::RemoveDisk(uint32_t number)
{
    const auto found = disks_.find(number);
    if (found == disks_.end()) {
        return;
    }
    volumes.DropAllOf(number);
    names.RemoveDevice(DriveName(number));
    found->second->Remove();
    disks_.erase(found);
}

Disk* Machine::FindDisk(uint32_t number) const
{
    return ShareDisk(number).get();
}

std::shared_ptr<Disk> Machine::ShareDisk(uint32_t number) const
{
    const auto found = disks_.find(number);
    return found == disks_.end() ? nullptr : found->second;
}

uint32_t Machine::LowestFreeDiskNumber() const
{
    uint32_t number = 0;
    while (disks_.contains(number)) {
        ++number;
    }
    return number;
}

Machine& Machine::AssignLetter(Volume& volume, char16_t letter)
{
    if (!volumes.AssignLetter(volume, letter)) {
        throw std::invalid_argument("the letter is taken or none, or the volume has one");
    }
    return *this;
}

Machine& Machine::SetVolumeNumber(Volume& volume, uint32_t number)
{
    volumes.SetNumber(volume, number);
    return *this;
}

Machine& Machine::CountVolumesFrom(uint32_t number)
{
    volumes.CountFrom(number);
    return *this;
}

Machine& Machine::HideVolume(Volume& volume)
{
    volumes.Hide(volume);
    return *this;
}

Machine& Machine::MapDrive(char16_t letter, const std::string& hostFolder)
{
    drives.Map(letter, hostFolder);
    return *this;
}

void Machine::OnControl(CallPattern pattern, ControlOverride answer)
{
    overrides_.emplace_back(std::move(pattern), std::move(answer));
}

std::optional<ControlAnswer> Machine::OverriddenAnswer(const CallRecord& record, const ControlRequest& request) const
{
    for (auto entry = overrides_.rbegin(); entry != overrides_.rend(); ++entry) {
        if (entry->first.Matches(record)) {
            if (std::optional<ControlAnswer> answer = entry->second(record, request)) {
                return answer;
            }
        }
    }
    return std::nullopt;
}

}  // namespace machine
