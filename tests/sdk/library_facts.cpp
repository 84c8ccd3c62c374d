// The library's side of the lists: the same facts, asserted of its own declarations.

#include <cstddef>
#include <cstdint>

#include "backup/volume_bitmap.h"
#include "backup/vss_interfaces.h"
#include "core/guid.h"
#include "core/kernel32_api.h"
#include "core/nt_types.h"
#include "core/status.h"
#include "disk/disk_controls.h"
#include "disk/mount_manager.h"
#include "disk/volume_controls.h"
#include "image/virtual_disk_api.h"
#include "partition/disk_refresh.h"

#define FACT_SIZE(sdk, ours, bytes) static_assert(sizeof(ours) == (bytes), #ours);
#define FACT_FIELD(sdk, field, ours, ourField, offset)                                                                 \
    static_assert(offsetof(ours, ourField) == (offset), #ours "." #ourField);
#define FACT_VALUE(sdk, ours, value) static_assert(static_cast<uint32_t>(ours) == static_cast<uint32_t>(value), #ours);

namespace {

/// Four bytes of a GUID's tail as one number, the first the highest.
consteval uint32_t BigEndian(const uint8_t* bytes)
{
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

}  // namespace

#include "native_facts.inc"
#include "service_facts.inc"
#include "snapshot_facts.inc"

// What MinGW-w64 10 lacks or has otherwise, from Microsoft's reference pages: it leaves PhysicalSectorSizeInBytes out
// of the creation record, so that what follows is 8 bytes off there.
static_assert(offsetof(kk::CreateVirtualDiskParameters, physicalSectorSizeInBytes) == 40);
static_assert(offsetof(kk::CreateVirtualDiskParameters, parentPath) == 48);
static_assert(offsetof(kk::CreateVirtualDiskParameters, sourcePath) == 56);
static_assert(offsetof(kk::CreateVirtualDiskParameters, openFlags) == 64);
static_assert(offsetof(kk::CreateVirtualDiskParameters, parentVirtualStorageType) == 68);
static_assert(offsetof(kk::CreateVirtualDiskParameters, sourceVirtualStorageType) == 88);
static_assert(offsetof(kk::CreateVirtualDiskParameters, resiliencyGuid) == 108);
static_assert(sizeof(kk::CreateVirtualDiskParameters) == 128);
// Its attachment record has version 1 alone, so that it is short and the reserved field lies at 4. Beside version 2 that
// field lies at 8. The library's record has room for both.
static_assert(offsetof(kk::AttachVirtualDiskParameters, reserved8) == 8);
static_assert(sizeof(kk::AttachVirtualDiskParameters) == 24);
// Newer than MinGW-w64 10, too.
static_assert(offsetof(kk::PartitionInformationEx, isServicePartition) == 29);
static_assert(offsetof(kk::PartitionInformationMbr, partitionId) == 8);
