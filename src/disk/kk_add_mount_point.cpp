#include "core/text.h"
#include "disk/volume_mounting.h"

KK_STATUS KK_CALL KkAddMountPoint(uint32_t diskNumber, uint64_t startOffset, const KkWideChar* directory)
{
    return kk::AddMountPoint(diskNumber, startOffset, kk::FromCaller(directory));
}
