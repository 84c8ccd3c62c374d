#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "exports/support/disk_kind.h"
#include "exports/support/export_test.h"

/// One caller's way through nearly all exports, on disks and images of its own, and in words what came of it: statuses,
/// listings, contents. Left out is what nobody can foresee, such as identifiers and numbers of volumes. So the words of
/// two runs can be compared, of which one went alone and one beside others.
class DiskCourse {
public:
    /// Puts the caller's two disks into the machine and its image into the folder. `number` is the caller's.
    DiskCourse(machine::Machine& machine, const machine::KestrelkitApi& api, machine::MemoryVirtualDisks& images,
               const std::filesystem::path& folder, uint32_t number);

    /// Makes the calls, and nothing else that reaches the machine.
    void Run();
    /// What the calls answered, and what is on the disks now, a line for each.
    std::vector<std::string> Words() const;
    /// The lines of calls that failed.
    std::vector<std::string> Failures() const;

private:
    void EditPartitions();
    void BackUp();
    void UseImage();
    void UseOverlay();

    void Say(const std::string& call, int32_t status, const std::string& more = {});
    void List(uint32_t disk);
    std::u16string DeviceAt(uint64_t start) const;
    std::u16string PathOf(const std::string& file) const;

    machine::Machine& machine_;
    const machine::KestrelkitApi& api_;
    std::filesystem::path folder_;
    uint32_t number_;
    uint32_t work_;
    uint32_t target_;
    std::vector<std::string> words_;
};
