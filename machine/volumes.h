#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "machine/volume.h"

namespace machine {

class Machine;

/// The volumes of all disks. They come and go with their partitions; their numbers are never used again.
class Volumes {
public:
    explicit Volumes(Machine& machine) : machine_(machine) {}

    /// In order of arrival.
    const std::vector<std::shared_ptr<Volume>>& All() const { return volumes_; }
    /// The volume that has an extent which begins there, or null.
    std::shared_ptr<Volume> Find(uint32_t diskNumber, uint64_t start) const;
    std::shared_ptr<Volume> FindByLetter(char16_t letter) const;
    /// By `\\?\Volume{...}\` or `\??\Volume{...}`, with or without the last backslash.
    std::shared_ptr<Volume> FindByPath(std::u16string_view path) const;

    /// Brings the volumes of a disk in line with its cached layout.
    void Follow(const std::shared_ptr<Disk>& disk);
    /// The partition has changed its length in place.
    void FollowLength(const Disk& disk, const kk::PartitionInformationEx& partition);
    /// The disk is gone.
    void DropAllOf(uint32_t diskNumber);
    /// Lets late volumes arrive whose time has come. Called once for each call of the machine.
    void CountCall();

    /// False when the letter is taken or the volume already has one.
    bool AssignLetter(Volume& volume, char16_t letter);
    void RemoveLetter(Volume& volume);
    /// The volume is without its letter after the next rescan of its disk, as happens on real systems.
    static void LoseLetterOnRescan(Volume& volume) { volume.losesLetter_ = true; }
    /// Whether volumes that arrive get the first free letter from C on. Those of partitions that are hidden or that
    /// only the system uses get none, nor do those of disks that were attached without letters.
    void SetAutomaticLetters(bool automatic) { automaticLetters_ = automatic; }
    void SetNumber(Volume& volume, uint32_t number);
    void CountFrom(uint32_t number) { nextNumber_ = number; }
    /// Leaves the partition without a volume device, also after a rescan.
    void Hide(Volume& volume);

private:
    struct Arrival {
        std::shared_ptr<Disk> disk;
        kk::PartitionInformationEx partition;
        uint64_t callsLeft;
    };
    void Announce(const std::shared_ptr<Disk>& disk, const kk::PartitionInformationEx& partition);
    void Arrive(const std::shared_ptr<Disk>& disk, const kk::PartitionInformationEx& partition);
    void Register(const std::shared_ptr<Volume>& volume);
    void Unregister(Volume& volume);
    void GiveFirstFreeLetter(Volume& volume);
    bool IsHidden(uint32_t diskNumber, uint64_t start) const;
    bool IdentityIsTaken(const Disk& disk) const;

    Machine& machine_;
    std::vector<std::shared_ptr<Volume>> volumes_;
    std::vector<Arrival> arrivals_;
    std::vector<std::pair<uint32_t, uint64_t>> hidden_;
    uint32_t nextNumber_ = 1;
    bool automaticLetters_ = false;
};

}  // namespace machine
