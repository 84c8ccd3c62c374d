#pragma once

#include <memory>

#include "exports/support/recorded_api.h"
#include "exports/support/shows.h"
#include "machine/kestrelkit_api.h"
#include "machine/memory_virtual_disks.h"
#include "machine/snapshot_service.h"
#include "machine/virtual_disk_service.h"
#include "support/machine_test.h"
#include "support/shell.h"

/// The library in one of the ways in which it runs: linked to this program, or as the shipped DLL.
class LibraryFlavour {
public:
    virtual ~LibraryFlavour() = default;
    virtual const machine::KestrelkitApi& Api() const = 0;
    /// Whether mistakes in the library's own accesses are seen, which makes long tests worth their time.
    virtual bool IsSanitized() const = 0;
};

/// Made by the program's flavour; the machine must exist.
std::unique_ptr<LibraryFlavour> MakeLibraryFlavour();

/// A test of the exports on a machine with virtual disks in memory and a snapshot service.
class ExportTest : public MachineTest {
protected:
    ExportTest()
        : images(std::make_shared<machine::MemoryVirtualDisks>()),
          virtualDisks(machine::InstallVirtualDiskService(machine, images)),
          snapshots(machine::InstallSnapshotService(machine)), library(MakeLibraryFlavour()),
          api(RecordedApi(library->Api()))
    {
    }

    std::shared_ptr<machine::MemoryVirtualDisks> images;
    machine::VirtualDiskService& virtualDisks;
    machine::SnapshotService& snapshots;
    std::unique_ptr<LibraryFlavour> library;
    const machine::KestrelkitApi api;
};
