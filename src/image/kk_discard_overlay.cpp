#include "core/text.h"
#include "image/overlay.h"

KK_STATUS KK_CALL KkDiscardOverlay(const KkWideChar* overlayPath)
{
    return kk::DiscardOverlay(kk::FromCaller(overlayPath));
}
