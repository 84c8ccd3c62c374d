#include "core/memory.h"

#include "core/nt.h"

namespace kk {

namespace {

void* ProcessHeap()
{
    const ProcessEnvironmentBlock* block = nullptr;
    asm volatile("movq %%gs:%c1, %0" : "=r"(block) : "i"(kThreadBlockPebOffset));
    return block->processHeap;
}

}  // namespace

void* MemAlloc(uint64_t size)
{
    return RtlAllocateHeap(ProcessHeap(), 0, size == 0 ? 1 : size);
}

void MemFree(void* block)
{
    if (block != nullptr) {
        (void)RtlFreeHeap(ProcessHeap(), 0, block);
    }
}

}  // namespace kk
