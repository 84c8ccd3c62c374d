#pragma once

#include <cstddef>
#include <cstdint>

// What a PE file tells the loader beyond its headers. The library uses it for control-flow guard alone.

namespace kk {

/// IMAGE_LOAD_CONFIG_DIRECTORY64, as far as the fields that control-flow guard needs; the loader goes by `size`. Fields that the linker fills with
/// numbers are pointers here, because a constant expression can take them from symbols in no other way.
struct LoadConfig {
    uint32_t size;
    uint8_t unused[108];
    const void* guardCheckFunction;
    const void* guardDispatchFunction;
    const void* guardFunctionTable;
    const void* guardFunctionCount;
    const void* guardFlags;  // 32 bits; the other half is the start of the next record, which is zero
    uint64_t codeIntegrity;
};
static_assert(sizeof(LoadConfig) == 160 && offsetof(LoadConfig, guardCheckFunction) == 112);

}  // namespace kk
