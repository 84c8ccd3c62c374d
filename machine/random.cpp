#include "machine/random.h"

namespace machine {

uint32_t RandomSource::Step(uint32_t seed)
{
    constexpr uint64_t kModulus = 0x7FFFFFFF;
    return static_cast<uint32_t>((seed * 0x7FFFFFEDull + 0x7FFFFFC3) % kModulus);
}

uint32_t RandomSource::Next(uint32_t& seed)
{
    seed = Step(seed);
    if (!scripted_.empty()) {
        const uint32_t result = scripted_.front();
        scripted_.pop_front();
        return result;
    }
    if (!processWideTable_) {
        return seed;
    }
    const uint32_t result = Step(seed ^ table_[tableIndex_] ^ tableIndex_);
    table_[tableIndex_] = seed + result;
    tableIndex_ = result % static_cast<uint32_t>(table_.size());
    return result;
}

}  // namespace machine
