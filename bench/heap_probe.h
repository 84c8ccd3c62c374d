#pragma once

#include <cstdint>

#include "figure.h"
#include "machine/pe_loader.h"

namespace bench {

/// Stands between a DLL and the machine's heap, and measures how fast the library fills and copies blocks, and how
/// fast libc does the very same right before or after, in the same blocks. One at a time.
///
/// Two blocks are watched: the first of `kBlockBytes`, which the library fills with zeros, and the second, the list of
/// extents, whose items it copies into one of twice the size before it frees it.
class HeapProbe {
public:
    static constexpr uint64_t kBlockBytes = 8 << 20;

    HeapProbe();
    ~HeapProbe();
    HeapProbe(const HeapProbe&) = delete;
    HeapProbe& operator=(const HeapProbe&) = delete;

    /// For the DLL that is to be watched.
    machine::ImportResolver Resolver() const;

    /// Begins a run of the library; libc goes first or second.
    void Begin(bool peerFirst);

    /// After the run: libc's and the library's time. The library's fill ends with its first call after
    /// `FillStartNs`, which the journal knows.
    uint64_t FillStartNs() const { return fillStartNs_; }
    double PeerFillSeconds() const { return peerFillSeconds_; }
    const Pair& Copy() const { return copy_; }

    // For the functions that the DLL calls.
    void NoteAllocation(uint64_t size, void* block);
    void NoteFree(void* block);

private:
    void PrepareFill();
    void PrepareCopy(void* grown);
    void MeasurePeerFill();
    void MeasurePeerCopy();

    bool peerFirst_ = false;
    void* filled_ = nullptr;
    void* list_ = nullptr;
    void* grownList_ = nullptr;
    uint64_t fillStartNs_ = 0;
    double peerFillSeconds_ = 0;
    double copyStart_ = 0;
    Pair copy_ = {};
};

}  // namespace bench
