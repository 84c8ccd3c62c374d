#pragma once

#include <gtest/gtest.h>

#include "machine/machine.h"

/// A test on a machine of its own. Whatever the library does not give back fails the test.
class MachineTest : public testing::Test {
protected:
    static constexpr uint64_t kKiB = 1024;
    static constexpr uint64_t kMiB = 1024 * kKiB;
    static constexpr uint64_t kGiB = 1024 * kMiB;

    MachineTest()
    {
        machine.SetFailureHandler([](const std::string& breach) { ADD_FAILURE() << breach; });
    }

    machine::Machine machine;
};

/// A status as this library's headers and the system's name it, from its usual notation.
constexpr int32_t Status(uint32_t value)
{
    return static_cast<int32_t>(value);
}
