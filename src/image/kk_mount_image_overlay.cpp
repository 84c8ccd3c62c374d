#include "core/text.h"
#include "image/overlay.h"

KK_STATUS KK_CALL KkMountImageOverlay(const KkWideChar* parentImagePath, const KkWideChar* overlayPath,
                                      uint32_t* diskNumber)
{
    return kk::MountImageOverlay(kk::FromCaller(parentImagePath), kk::FromCaller(overlayPath), diskNumber);
}
