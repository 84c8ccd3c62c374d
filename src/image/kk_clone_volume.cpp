#include "core/text.h"
#include "image/volume_clone.h"

KK_STATUS KK_CALL KkCloneVolume(const KkWideChar* sourcePath, const KkWideChar* targetPath, uint32_t extendFileSystem)
{
    if (sourcePath == nullptr || targetPath == nullptr) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    return kk::CloneVolume(kk::FromCaller(sourcePath), kk::FromCaller(targetPath), extendFileSystem != 0);
}
