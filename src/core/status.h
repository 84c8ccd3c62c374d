#pragma once

#include "kestrelkit/kestrelkit.h"

namespace kk {

/// The answer did not fit into the buffer. A code that the public header leaves out, since no export makes it up: it is
/// the signal on which loops with growing buffers go on.
inline constexpr KK_STATUS kStatusBufferOverflow = static_cast<KK_STATUS>(0x80000005);

[[nodiscard]] constexpr bool Failed(KK_STATUS status)
{
    return status < 0;
}

}  // namespace kk

/// Leaves the calling function with the expression's status when that is a failure. For passing it up unchanged only.
#define KK_TRY(expression)                                                                                             \
    do {                                                                                                               \
        if (const KK_STATUS kkTryStatus = (expression); ::kk::Failed(kkTryStatus)) {                                   \
            return kkTryStatus;                                                                                        \
        }                                                                                                              \
    } while (false)
