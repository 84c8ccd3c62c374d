#pragma once

#include <array>
#include <cstdint>

#include "core/nt_types.h"

namespace machine {

/// What the gs segment leads to on the machine's threads: a thread block and the process environment block, with
/// nothing in them but the way to the default heap.
class ThreadBlock {
public:
    explicit ThreadBlock(void* processHeap);
    ThreadBlock(const ThreadBlock&) = delete;
    ThreadBlock& operator=(const ThreadBlock&) = delete;

    /// Points the calling thread's gs segment here.
    void Install() const;
    /// Gives the calling thread's gs segment back to nobody.
    static void Uninstall();

private:
    alignas(16) std::array<uint8_t, 0x1000> thread_ = {};
    alignas(16) std::array<uint8_t, 0x1000> process_ = {};
};

}  // namespace machine
