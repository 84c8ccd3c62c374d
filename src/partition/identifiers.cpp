#include "partition/identifiers.h"

#include "core/memory.h"
#include "core/nt.h"
#include "core/system_time.h"

namespace kk {

void GenerateRandomGuid(Guid& guid)
{
    // Not the time as it is, with which other identifiers of the same moment begin.
    uint32_t seed = FoldTime(QuerySystemTime()) ^ 0x9E3779B9;
    uint8_t bytes[sizeof(Guid)];
    for (uint8_t& byte : bytes) {
        byte = static_cast<uint8_t>(RtlRandomEx(&seed) >> 16);
    }
    bytes[7] = static_cast<uint8_t>((bytes[7] & 0x0F) | 0x40);  // version 4
    bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3F) | 0x80);  // variant of the RFC
    CopyBytes(&guid, bytes, sizeof(guid));
}

void GetBasicDataTypeGuid(Guid& guid)
{
    guid = {0xEBD0A0A2, 0xB9E5, 0x4433, {0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7}};
}

}  // namespace kk
