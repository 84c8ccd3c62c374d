#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "machine/clock.h"
#include "machine/disk.h"
#include "machine/faults.h"
#include "machine/handles.h"
#include "machine/heap.h"
#include "machine/host_drives.h"
#include "machine/journal.h"
#include "machine/modules.h"
#include "machine/mount_manager.h"
#include "machine/namespace.h"
#include "machine/privileges.h"
#include "machine/processes.h"
#include "machine/random.h"
#include "machine/switches.h"
#include "machine/thread_block.h"
#include "machine/volumes.h"

namespace machine {

/// A 64-bit NT machine with one real process. It exists once at a time; its creation makes it the one that the native
/// calls of this program reach, and its destruction reports what the process has not given back.
class Machine {
public:
    using FailureHandler = std::function<void(const std::string&)>;
    using BalanceCheck = std::function<std::vector<std::string>()>;
    using ControlOverride = std::function<std::optional<ControlAnswer>(const CallRecord&, const ControlRequest&)>;

    Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;
    ~Machine();

    /// The machine that exists; ends the program when there is none.
    static Machine& Current();

    /// Makes the calling thread one of the machine's for as long as the result lives, which must end on that thread and
    /// before the machine. The thread that created the machine is one already.
    [[nodiscard]] ThreadBlock JoinThread() const { return ThreadBlock(processBlock_); }

    /// Hears of every breach of the rules, by the caller or by a test's set-up. Without one, the first breach is
    /// printed and ends the program.
    void SetFailureHandler(FailureHandler handler) { failureHandler_ = std::move(handler); }
    void Report(const std::string& breach) const;

    /// Handles, heap blocks and service objects that are alive, a line for each.
    std::vector<std::string> Imbalances() const;
    /// For services with objects of their own.
    void AddBalanceCheck(BalanceCheck check) { balanceChecks_.push_back(std::move(check)); }

    /// All the unkind behaviour that real systems show.
    Machine& Strict();

    // Disks. Numbers that are taken are a breach of the rules.
    Disk& AddDisk(uint64_t sizeBytes, const DiskOptions& options = {});
    Disk& AddDisk(std::unique_ptr<Storage> storage, const DiskOptions& options = {});
    Disk& AddDiskFile(const std::string& hostPath, const DiskOptions& options = {});
    void RemoveDisk(uint32_t number);
    Disk* FindDisk(uint32_t number) const;
    std::shared_ptr<Disk> ShareDisk(uint32_t number) const;
    const std::map<uint32_t, std::shared_ptr<Disk>>& Disks() const { return disks_; }

    // Volumes, which come from the disks' partitions.
    Volume* FindVolume(uint32_t diskNumber, uint64_t start) const { return volumes.Find(diskNumber, start).get(); }
    Machine& AssignLetter(Volume& volume, char16_t letter);
    Machine& SetVolumeNumber(Volume& volume, uint32_t number);
    /// The volumes that arrive from now on get this number and those after it, as after a restart.
    Machine& CountVolumesFrom(uint32_t number);
    Machine& HideVolume(Volume& volume);

    Machine& MapDrive(char16_t letter, const std::string& hostFolder);

    /// Answers the control requests that fit in place of the device; nullopt means the device after all. Later
    /// overrides come first.
    void OnControl(CallPattern pattern, ControlOverride answer);
    std::optional<ControlAnswer> OverriddenAnswer(const CallRecord& record, const ControlRequest& request) const;

    /// Serialises all calls; see MachineLock. Held while a call is under way, so callbacks must not wait for other
    /// threads' calls.
    std::recursive_mutex& Lock() { return lock_; }
    uint64_t NextCallIndex() { return nextCall_++; }

    Switches switches;
    Clock clock;
    RandomSource random;
    Journal journal;
    Faults faults;
    Heap heap;
    HostDrives drives;
    Namespace names;
    Modules modules;
    Volumes volumes;
    std::shared_ptr<MountManager> mountManager;
    HandleTable handles;
    Processes processes;
    Privileges privileges;
    /// The actions of NtShutdownSystem so far. The real call does not come back; this one does.
    std::vector<uint32_t> shutdowns;

private:
    uint32_t LowestFreeDiskNumber() const;

    std::recursive_mutex lock_;
    uint64_t nextCall_ = 1;
    FailureHandler failureHandler_;
    std::vector<BalanceCheck> balanceChecks_;
    std::vector<std::pair<CallPattern, ControlOverride>> overrides_;
    std::map<uint32_t, std::shared_ptr<Disk>> disks_;
    ProcessBlock processBlock_;
    ThreadBlock creatorsBlock_;
};

}  // namespace machine
