#include "aligned_heap.h"

#include <unordered_map>

#include "core/nt.h"

namespace bench {

namespace {

constexpr uint64_t kLargeBytes = 1 << 20;
constexpr uintptr_t kCacheLineBytes = 64;

/// The machine's own blocks, by the addresses that were handed out for them.
std::unordered_map<void*, void*>& MovedBlocks()
{
    static std::unordered_map<void*, void*> blocks;
    return blocks;
}

}  // namespace

void* KK_CALL AllocateAligned(void* heap, uint32_t flags, uint64_t size)
{
    if (size < kLargeBytes) {
        return RtlAllocateHeap(heap, flags, size);
    }
    void* const block = RtlAllocateHeap(heap, flags, size + kCacheLineBytes);
    if (block == nullptr) {
        return nullptr;
    }
    const uintptr_t aligned = (reinterpret_cast<uintptr_t>(block) + kCacheLineBytes - 1) & ~(kCacheLineBytes - 1);
    MovedBlocks()[reinterpret_cast<void*>(aligned)] = block;
    return reinterpret_cast<void*>(aligned);
}

uint8_t KK_CALL FreeAligned(void* heap, uint32_t flags, void* block)
{
    const auto moved = MovedBlocks().find(block);
    if (moved == MovedBlocks().end()) {
        return RtlFreeHeap(heap, flags, block);
    }
    void* const own = moved->second;
    MovedBlocks().erase(moved);
    return RtlFreeHeap(heap, flags, own);
}

machine::ImportResolver ResolverWithAlignedHeap()
{
    return [](std::string_view library, std::string_view name) -> void* {
        if (name == "RtlAllocateHeap") {
            return reinterpret_cast<void*>(&AllocateAligned);
        }
        if (name == "RtlFreeHeap") {
            return reinterpret_cast<void*>(&FreeAligned);
        }
        return machine::ResolveFromNtdll(library, name);
    };
}

}  // namespace bench
