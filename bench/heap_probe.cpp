#include "heap_probe.h"

#include <chrono>
#include <cstring>

#include "core/nt.h"

namespace bench {

namespace {

HeapProbe* theProbe = nullptr;

void* KK_CALL AllocateWatched(void* heap, uint32_t flags, uint64_t size)
{
    void* const block = RtlAllocateHeap(heap, flags, size);
    theProbe->NoteAllocation(size, block);
    return block;
}

uint8_t KK_CALL FreeWatched(void* heap, uint32_t flags, void* block)
{
    theProbe->NoteFree(block);
    return RtlFreeHeap(heap, flags, block);
}

}  // namespace

HeapProbe::HeapProbe()
{
    theProbe = this;
}

HeapProbe::~HeapProbe()
{
    theProbe = nullptr;
}

machine::ImportResolver HeapProbe::Resolver() const
{
    return [](std::string_view library, std::string_view name) -> void* {
        if (name == "RtlAllocateHeap") {
            return reinterpret_cast<void*>(&AllocateWatched);
        }
        if (name == "RtlFreeHeap") {
            return reinterpret_cast<void*>(&FreeWatched);
        }
        return machine::ResolveFromNtdll(library, name);
    };
}

void HeapProbe::Begin(bool peerFirst)
{
    peerFirst_ = peerFirst;
    filled_ = nullptr;
    list_ = nullptr;
    grownList_ = nullptr;
}

void HeapProbe::NoteAllocation(uint64_t size, void* block)
{
    if (size == kBlockBytes && filled_ == nullptr) {
        filled_ = block;
        PrepareFill();
    } else if (size == kBlockBytes && list_ == nullptr) {
        list_ = block;
    } else if (size == 2 * kBlockBytes && list_ != nullptr && grownList_ == nullptr) {
        PrepareCopy(block);
    }
}

/// Both sides find a block that was written a moment ago.
void HeapProbe::PrepareFill()
{
    std::memset(filled_, 0xCD, kBlockBytes);
    if (peerFirst_) {
        MeasurePeerFill();
        std::memset(filled_, 0xCD, kBlockBytes);
    }
    // The clock of the journal, whose time stamps are compared with this one.
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    fillStartNs_ = static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

/// Both sides find what a copy a moment ago left in the caches.
void HeapProbe::PrepareCopy(void* grown)
{
    grownList_ = grown;
    std::memcpy(grownList_, list_, kBlockBytes);
    if (peerFirst_) {
        MeasurePeerCopy();
    }
    copyStart_ = NowSeconds();
}

void HeapProbe::NoteFree(void* block)
{
    if (block == nullptr) {
        return;
    }
    if (block == list_ && grownList_ != nullptr) {
        copy_.ours.seconds = NowSeconds() - copyStart_;
        if (!peerFirst_) {
            MeasurePeerCopy();
        }
        list_ = nullptr;
    } else if (block == filled_ && !peerFirst_) {
        std::memset(filled_, 0xCD, kBlockBytes);
        MeasurePeerFill();
    }
}

void HeapProbe::MeasurePeerFill()
{
    const double started = NowSeconds();
    std::memset(filled_, 0, kBlockBytes);
    peerFillSeconds_ = NowSeconds() - started;
}

void HeapProbe::MeasurePeerCopy()
{
    const double started = NowSeconds();
    std::memcpy(grownList_, list_, kBlockBytes);
    copy_.peer.seconds = NowSeconds() - started;
}

}  // namespace bench
