#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "machine/machine.h"

/// A call that may be failed.
struct LaterCall {
    uint64_t place;    // among all calls of the operation, beginning with 1
    uint32_t failure;  // how a call of its kind fails
};

/// The faultable calls that an operation makes after its `failing`-th one has failed, or all of them for 0. It runs in
/// a process of its own.
std::vector<LaterCall> CallsAfter(machine::Machine& machine, uint64_t failing,
                                  const std::function<int32_t()>& operation);
