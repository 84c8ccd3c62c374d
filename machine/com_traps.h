#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <utility>

#include "machine/com_values.h"

// Method tables in which every slot that nobody may call tells on its caller.

namespace machine {

/// Whose table a trap lies in.
enum class ComTable { BackupComponents, Async, ReleasedBackupComponents, ReleasedAsync };

/// Reports the call to the machine's failure handler.
void ReportTrappedCall(ComTable table, size_t slot);

template <ComTable Which, size_t Slot>
HResult KK_CALL TrappedMethod(void* /*self*/)
{
    ReportTrappedCall(Which, Slot);
    return kNotImplemented;
}

/// A method table of type `Methods`, filled with traps from the first slot to the last.
template <ComTable Which, typename Methods>
Methods MakeTrapTable()
{
    constexpr size_t kSlots = sizeof(Methods) / sizeof(void*);
    const auto addresses = []<size_t... Slots>(std::index_sequence<Slots...>) {
        return std::array<void*, kSlots>{reinterpret_cast<void*>(&TrappedMethod<Which, Slots>)...};
    }(std::make_index_sequence<kSlots>());
    Methods methods;
    static_assert(sizeof(addresses) == sizeof(methods));
    std::memcpy(&methods, addresses.data(), sizeof(methods));
    return methods;
}

}  // namespace machine
