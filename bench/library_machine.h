#pragma once

#include <filesystem>
#include <memory>

#include "figure.h"
#include "machine/kestrelkit_api.h"
#include "machine/machine.h"
#include "machine/virtual_disk_back_end.h"

namespace bench {

/// How one backup went.
struct BackupRun {
    KK_STATUS status = 0;
    BackupResult result = {};
    Cost cost = {};
};

/// A fresh copy of the shipped DLL in a machine of its own. Heap blocks are not filled with patterns, which would be
/// the machine's time.
class LibraryMachine {
public:
    LibraryMachine(const std::filesystem::path& dll, std::shared_ptr<machine::VirtualDiskBackEnd> images,
                   machine::ImportResolver resolver = machine::ResolveFromNtdll);

    machine::Machine& Nt() { return machine_; }
    const std::vector<machine::CallRecord>& Calls() const { return machine_.journal.Records(); }

    /// Backs disk 0 up, without snapshots. The journal and the heap's counters begin anew.
    BackupRun Backup(const std::filesystem::path& image, bool usedBlocksOnly);

    /// The transfers of the last backup: reads, and writes to the image.
    Work TransferWork() const;

private:
    machine::Machine machine_;
    machine::LoadedDll dll_;
    machine::KestrelkitApi api_;
};

/// Text for an error message.
std::string StatusText(KK_STATUS status);

}  // namespace bench
