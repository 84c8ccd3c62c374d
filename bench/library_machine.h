#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "figure.h"
#include "machine/kestrelkit_api.h"
#include "machine/machine.h"
#include "machine/virtual_disk_back_end.h"

namespace bench {

/// How one call of the library went.
struct Run {
    KK_STATUS status = 0;
    Cost cost = {};
};

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

    /// Makes a call of the library. The journal and the heap's counters begin anew.
    Run Call(const std::function<KK_STATUS(const machine::KestrelkitApi&)>& call);

    /// Backs disk 0 up, without snapshots.
    BackupRun Backup(const std::filesystem::path& image, bool usedBlocksOnly);

    /// The transfers of the last call: reads, and writes to objects with `target` in their name.
    Work TransferWork(const std::string& target) const;

private:
    machine::Machine machine_;
    machine::LoadedDll dll_;
    machine::KestrelkitApi api_;
};

/// The name that the library knows a file of the host by.
std::u16string LibraryPath(const std::filesystem::path& file);

/// Text for an error message.
std::string StatusText(KK_STATUS status);

}  // namespace bench
