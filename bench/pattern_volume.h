#pragma once

#include <filesystem>
#include <memory>

#include "bitmap_patterns.h"
#include "library_machine.h"
#include "machine/memory_virtual_disks.h"
#include "settings.h"

namespace bench {

/// A volume of as many clusters as a pattern has, on a disk that takes no room. Nothing can be read of it, so that a
/// backup ends once the clusters in use are known.
class PatternVolume {
public:
    PatternVolume(const Settings& settings, std::shared_ptr<const BitmapPattern> pattern,
                  machine::ImportResolver resolver = machine::ResolveFromNtdll);

    /// Has the library back up the clusters in use. Throws when that ends in another way than it must.
    void Run();

    /// The calls of the last run.
    const std::vector<machine::CallRecord>& Calls() const { return library_.Calls(); }
    uint64_t PeakHeapBytes() { return library_.Nt().heap.PeakBytes(); }

private:
    std::filesystem::path image_;
    std::shared_ptr<machine::MemoryVirtualDisks> images_;
    LibraryMachine library_;
};

}  // namespace bench
