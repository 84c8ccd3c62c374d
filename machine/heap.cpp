#include "machine/heap.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MACHINE_HAS_ADDRESS_SANITIZER 1
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define MACHINE_HAS_ADDRESS_SANITIZER 1
#endif
#if defined(MACHINE_HAS_ADDRESS_SANITIZER)
#include <sanitizer/asan_interface.h>
#endif

namespace machine {

namespace {

constexpr uint64_t kGuardBytes = 32;
constexpr uint64_t kAlignment = 16;
constexpr uint64_t kLargeBytes = 1 << 20;
constexpr uint64_t kCacheLine = 64;
constexpr uint8_t kGuardPattern = 0xFD;
constexpr uint8_t kFreshPattern = 0xCD;
constexpr uint8_t kFreedPattern = 0xDD;

/// What lies before a block: the guard, and for large blocks so much more that the block begins with a cache line, as
/// on a real system, where it has memory of its own.
uint64_t FrontBytes(uint64_t size)
{
    return size >= kLargeBytes ? kCacheLine : kGuardBytes;
}

uint8_t* TakeMemory(uint64_t size, bool zeroed)
{
    const uint64_t unit = size >= kLargeBytes ? kCacheLine : kAlignment;
    const uint64_t whole = (FrontBytes(size) + size + kGuardBytes + unit - 1) / unit * unit;
    auto* const memory = static_cast<uint8_t*>(std::aligned_alloc(unit, whole));
    if (memory != nullptr && zeroed) {
        std::memset(memory, 0, whole);
    }
    return memory;
}

/// Sanitized code trips over the guards at once; the guards' bytes are for code that is not sanitized.
void SetGuardAccess([[maybe_unused]] const uint8_t* block, [[maybe_unused]] uint64_t size,
                    [[maybe_unused]] bool accessible)
{
#if defined(MACHINE_HAS_ADDRESS_SANITIZER)
    if (accessible) {
        ASAN_UNPOISON_MEMORY_REGION(block - kGuardBytes, kGuardBytes);
        ASAN_UNPOISON_MEMORY_REGION(block + size, kGuardBytes);
    } else {
        ASAN_POISON_MEMORY_REGION(block - kGuardBytes, kGuardBytes);
        ASAN_POISON_MEMORY_REGION(block + size, kGuardBytes);
    }
#endif
}

}  // namespace

Heap::~Heap()
{
    for (const auto& [address, block] : blocks_) {
        SetGuardAccess(static_cast<const uint8_t*>(address), block.size, true);
        std::free(const_cast<uint8_t*>(static_cast<const uint8_t*>(address)) - FrontBytes(block.size));
    }
}

void* Heap::Allocate(uint64_t size, bool zeroed)
{
    if (size > limit_ || liveBytes_ > limit_ - size) {
        return nullptr;
    }
    uint8_t* const memory = TakeMemory(size, zeroed);
    if (memory == nullptr) {
        return nullptr;
    }
    uint8_t* const block = memory + FrontBytes(size);
    std::memset(block - kGuardBytes, kGuardPattern, kGuardBytes);
    std::memset(block + size, kGuardPattern, kGuardBytes);
    if (!zeroed && !(fast_ && size > kLargeBytes)) {
        std::memset(block, kFreshPattern, size);
    }
    SetGuardAccess(block, size, false);

    blocks_[block] = {size, nextNumber_++};
    sizes_.push_back(size);
    ++totalAllocations_;
    liveBytes_ += size;
    peakBytes_ = std::max(peakBytes_, liveBytes_);
    return block;
}

bool Heap::Free(void* block)
{
    const auto found = blocks_.find(block);
    if (found == blocks_.end()) {
        report_("a block was freed that is not of this heap, or was freed twice");
        return false;
    }
    const uint64_t size = found->second.size;
    auto* const bytes = static_cast<uint8_t*>(block);
    SetGuardAccess(bytes, size, true);
    if (!GuardsAreIntact(bytes, size)) {
        report_("heap block " + std::to_string(found->second.number) + " of " + std::to_string(size) +
                " bytes: written outside the block");
    }
    if (size <= kLargeBytes) {
        std::memset(bytes, kFreedPattern, size);
    }
    liveBytes_ -= size;
    blocks_.erase(found);
    std::free(bytes - FrontBytes(size));
    return true;
}

void Heap::ResetCounters()
{
    sizes_.clear();
    totalAllocations_ = 0;
    peakBytes_ = liveBytes_;
}

uint64_t Heap::SizeOf(const void* block) const
{
    const auto found = blocks_.find(block);
    return found == blocks_.end() ? 0 : found->second.size;
}

std::vector<std::string> Heap::LiveBlockNames() const
{
    std::vector<Block> blocks;
    for (const auto& entry : blocks_) {
        blocks.push_back(entry.second);
    }
    std::sort(blocks.begin(), blocks.end(), [](const Block& a, const Block& b) { return a.number < b.number; });
    std::vector<std::string> names;
    for (const Block& block : blocks) {
        names.push_back("heap block " + std::to_string(block.number) + " of " + std::to_string(block.size) +
                        " bytes was not freed");
    }
    return names;
}

bool Heap::GuardsAreIntact(const uint8_t* block, uint64_t size) const
{
    const auto intact = [](const uint8_t* guard) {
        return std::all_of(guard, guard + kGuardBytes, [](uint8_t byte) { return byte == kGuardPattern; });
    };
    return intact(block - kGuardBytes) && intact(block + size);
}

}  // namespace machine
