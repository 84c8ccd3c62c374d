#pragma once

#include <stdexcept>
#include <string>

#include <valgrind/callgrind.h>

#include "kestrelkit/kestrelkit.h"
#include "machine/text.h"

namespace bench {

/// Counts one call under its name. Throws when it fails.
template <typename Call>
void Count(const std::string& name, Call&& call)
{
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    const KK_STATUS status = call();
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(name.c_str());
    if (status != KK_STATUS_SUCCESS) {
        throw std::runtime_error(name + " ended with " + machine::Hex(static_cast<uint32_t>(status)));
    }
}

}  // namespace bench
