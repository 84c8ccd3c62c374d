#pragma once

#include <cstddef>
#include <cstdint>

#include "core/guid.h"

namespace kk {

inline constexpr size_t kBackupSetIdBytes = 21;
inline constexpr size_t kGuidTextBytes = 37;
inline constexpr size_t kTimestampBytes = 21;

/// The lower-case hexadecimal digit of a number's lowest four bits.
[[nodiscard]] constexpr char HexDigit(uint64_t value)
{
    return "0123456789abcdef"[value & 0xF];
}

/// Makes up an identifier of a backup set: "set-" and 16 hexadecimal digits from the time and a random number.
void FormatBackupSetId(char (&output)[kBackupSetIdBytes]);

/// The registry form of a GUID, in lower case and without braces.
void FormatGuidText(const Guid& guid, char (&output)[kGuidTextBytes]);

/// The present time, UTC, as YYYY-MM-DDTHH:MM:SSZ (RFC 3339).
void FormatUtcTimestamp(char (&output)[kTimestampBytes]);

}  // namespace kk
