#include "machine/thread_block.h"

#include <asm/prctl.h>
#include <cerrno>
#include <cstring>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace machine {

namespace {

constexpr size_t kSelfOffset = 0x30;

void SetGsBase(const void* base)
{
    if (syscall(SYS_arch_prctl, ARCH_SET_GS, base) != 0) {
        throw std::system_error(errno, std::generic_category(), "setting the gs segment");
    }
}

template <size_t N>
void PutPointer(std::array<uint8_t, N>& block, size_t offset, const void* pointer)
{
    std::memcpy(block.data() + offset, &pointer, sizeof(pointer));
}

}  // namespace

ProcessBlock::ProcessBlock(void* processHeap)
{
    PutPointer(bytes_, offsetof(kk::ProcessEnvironmentBlock, processHeap), processHeap);
}

ThreadBlock::ThreadBlock(const ProcessBlock& process)
{
    PutPointer(bytes_, kSelfOffset, bytes_.data());
    PutPointer(bytes_, kk::kThreadBlockPebOffset, process.Address());
    SetGsBase(bytes_.data());
}

ThreadBlock::~ThreadBlock()
{
    SetGsBase(nullptr);
}

}  // namespace machine
