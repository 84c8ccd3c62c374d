#include "exports/support/recorded_api.h"

#include <sys/mman.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

using machine::KestrelkitApi;
using machine::kExports;

/// Far more than a test can see: few exports, and few statuses of each.
constexpr size_t kRoom = 1024;

/// A pair of an export's index, from 1, and a status it returned; 0 where there is none yet.
using Pairs = std::array<std::atomic<uint64_t>, kRoom>;
static_assert(std::atomic<uint64_t>::is_always_lock_free, "processes share the pairs");

Pairs& SharedPairs()
{
    static Pairs* const pairs = [] {
        void* const memory = mmap(nullptr, sizeof(Pairs), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        return memory != MAP_FAILED ? new (memory) Pairs() : nullptr;
    }();
    return pairs != nullptr ? *pairs : (std::abort(), *pairs);
}

void Record(size_t index, KK_STATUS status)
{
    const uint64_t pair = (uint64_t{index + 1} << 32) | static_cast<uint32_t>(status);
    for (std::atomic<uint64_t>& place : SharedPairs()) {
        uint64_t present = 0;
        if (place.compare_exchange_strong(present, pair) || present == pair) {
            return;
        }
    }
    std::abort();
}

KestrelkitApi original;

template <size_t kIndex, typename... Arguments>
KK_STATUS KK_CALL CallAndRecord(Arguments... arguments)
{
    const KK_STATUS status = (original.*std::get<kIndex>(kExports).slot)(arguments...);
    Record(kIndex, status);
    return status;
}

template <size_t kIndex, typename... Arguments>
void Wrap(KestrelkitApi& api, const machine::ExportSlot<KK_STATUS(KK_CALL*)(Arguments...)>& entry)
{
    api.*entry.slot = &CallAndRecord<kIndex, Arguments...>;
}

}  // namespace

KestrelkitApi RecordedApi(const KestrelkitApi& api)
{
    for (std::atomic<uint64_t>& place : SharedPairs()) {
        place = 0;
    }
    original = api;
    KestrelkitApi recorded = {};
    [&]<size_t... kIndices>(std::index_sequence<kIndices...>) {
        (Wrap<kIndices>(recorded, std::get<kIndices>(kExports)), ...);
    }(std::make_index_sequence<std::tuple_size_v<decltype(kExports)>>());
    return recorded;
}

std::set<KK_STATUS> ReturnedBy(size_t index)
{
    std::set<KK_STATUS> statuses;
    for (const uint64_t pair : SharedPairs()) {
        if (pair >> 32 == index + 1) {
            statuses.insert(static_cast<KK_STATUS>(static_cast<uint32_t>(pair)));
        }
    }
    return statuses;
}
