/*
 * How a list of facts is checked on the SDK's side, in C.
 * FACT_SIZE(sdk type, our type, bytes)
 * FACT_FIELD(sdk type, sdk field, our type, our field, offset)
 * FACT_VALUE(sdk constant, our constant, value)
 */
#include <stddef.h>
#include <stdint.h>

#define FACT_SIZE(sdk, ours, bytes) _Static_assert(sizeof(sdk) == (bytes), #sdk);
#define FACT_FIELD(sdk, field, ours, ourField, offset)                                                                 \
    _Static_assert(offsetof(sdk, field) == (offset), #sdk "." #field);
#define FACT_VALUE(sdk, ours, value) _Static_assert((uint32_t)(sdk) == (uint32_t)(value), #sdk);
