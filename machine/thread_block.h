#pragma once

#include <array>
#include <cstdint>

#include "core/nt_types.h"

namespace machine {

/// The process environment block, with nothing in it but the default heap.
class ProcessBlock {
public:
    explicit ProcessBlock(void* processHeap);
    ProcessBlock(const ProcessBlock&) = delete;
    ProcessBlock& operator=(const ProcessBlock&) = delete;

    const void* Address() const { return bytes_.data(); }

private:
    alignas(16) std::array<uint8_t, 0x1000> bytes_ = {};
};

/// A thread block of the calling thread's own, with nothing in it but the way to the process's. As long as it lives,
/// the thread's gs segment leads to it; afterwards nowhere.
class ThreadBlock {
public:
    explicit ThreadBlock(const ProcessBlock& process);
    ThreadBlock(const ThreadBlock&) = delete;
    ThreadBlock& operator=(const ThreadBlock&) = delete;
    ~ThreadBlock();

private:
    alignas(16) std::array<uint8_t, 0x1000> bytes_ = {};
};

}  // namespace machine
