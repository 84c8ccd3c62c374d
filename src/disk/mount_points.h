#pragma once

#include <cstddef>
#include <cstdint>

#include "core/bytes.h"

namespace kk {

/// UTF-16 text at any address, also an odd one; its length is known to whoever holds it.
class WideText {
public:
    WideText(const char16_t* text) : bytes_(reinterpret_cast<const uint8_t*>(text)) {}
    explicit WideText(const uint8_t* bytes) : bytes_(bytes) {}

    char16_t operator[](size_t index) const { return LoadUnaligned<char16_t>(bytes_ + index * sizeof(char16_t)); }

private:
    const uint8_t* bytes_;
};

/// Compares `count` units; only A to Z equal their small letters, all other units must match exactly.
[[nodiscard]] bool NameEqualsIgnoreCase(WideText a, WideText b, size_t count);

/// Units of the buffers for volume GUID paths, which have 49 units and a terminator.
inline constexpr size_t kVolumeNameUnits = 128;

/// Asks the mount manager for the volume GUID path (`\\?\Volume{GUID}\`) of a volume's device name, the first one
/// in the mount manager's order, cut so that the terminator fits into `capacity` units. Empty when there is none or it
/// cannot be learnt.
void GetVolumeGuidPath(const char16_t* deviceName, char16_t* output, size_t capacity);

/// Units of a drive letter's text: letter, colon, terminator.
inline constexpr size_t kDriveLetterUnits = 3;

/// Asks the mount manager for the drive letter (`X:`) of a volume's device name, the first one in the mount
/// manager's order, in the case in which it is kept. False, with `output` empty, when there is none or it cannot be
/// learnt.
[[nodiscard]] bool GetDriveLetter(const char16_t* deviceName, char16_t (&output)[kDriveLetterUnits]);

}  // namespace kk
