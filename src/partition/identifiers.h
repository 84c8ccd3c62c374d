#pragma once

#include "core/guid.h"

namespace kk {

/// Makes up a version 4 GUID (RFC 9562, 5.4), seeded by the system time alone, on purpose: two made within one
/// tick are equal, and a call makes but one.
void GenerateRandomGuid(Guid& guid);

/// The GPT type of an ordinary data partition: EBD0A0A2-B9E5-4433-87C0-68B6B72699C7.
void GetBasicDataTypeGuid(Guid& guid);

}  // namespace kk
