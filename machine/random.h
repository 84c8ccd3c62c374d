#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <initializer_list>

namespace machine {

/// The random numbers of RtlRandomEx, 0 to 0x7FFFFFFE.
class RandomSource {
public:
    /// Answers and advances the seed. Unless told otherwise the same seed always gives the same answer.
    uint32_t Next(uint32_t& seed);

    /// These answers come first.
    void Script(std::initializer_list<uint32_t> results) { scripted_.insert(scripted_.end(), results); }

    /// The real system mixes in a table that the whole process shares, so that one seed gives ever new answers.
    void SetProcessWideTable(bool enabled) { processWideTable_ = enabled; }

private:
    static uint32_t Step(uint32_t seed);

    std::deque<uint32_t> scripted_;
    bool processWideTable_ = false;
    std::array<uint32_t, 128> table_ = {};
    uint32_t tableIndex_ = 0;
};

}  // namespace machine
