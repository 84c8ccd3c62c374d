#include "core/text.h"
#include "image/image_mounting.h"

KK_STATUS KK_CALL KkUnmountImage(const KkWideChar* imagePath)
{
    return kk::UnmountImage(kk::FromCaller(imagePath));
}
