#include "core/text.h"
#include "image/image_mounting.h"

KK_STATUS KK_CALL KkMountImage(const KkWideChar* imagePath, uint32_t* diskNumber)
{
    return kk::MountImage(kk::FromCaller(imagePath), diskNumber);
}
