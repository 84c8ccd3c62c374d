#include "disk/volume_mounting.h"

KK_STATUS KK_CALL KkSetDriveLetter(uint32_t diskNumber, uint64_t startOffset, KkWideChar letter)
{
    return kk::SetDriveLetter(diskNumber, startOffset, letter);
}
