#include "core/device_file.h"

#include "core/status.h"

namespace kk {

// The base class does nothing on purpose: without a run-time there is nothing to call for a purely virtual slot.

void DeviceFile::Destroy(bool /*freeObject*/) {}

KK_STATUS DeviceFile::ReadAt(uint64_t /*offset*/, void* /*buffer*/, uint32_t /*length*/)
{
    return KK_STATUS_SUCCESS;
}

KK_STATUS DeviceFile::WriteAt(uint64_t /*offset*/, const void* /*buffer*/, uint32_t /*length*/)
{
    return KK_STATUS_SUCCESS;
}

KK_STATUS DeviceFile::Control(uint32_t /*code*/, const void* /*input*/, uint32_t /*inputLength*/, void* /*output*/,
                              uint32_t /*outputLength*/, uint32_t* /*returned*/)
{
    return KK_STATUS_SUCCESS;
}

KK_STATUS DeviceFile::QuerySize(uint64_t* /*size*/)
{
    return KK_STATUS_SUCCESS;
}

KK_STATUS DeviceFile::Flush()
{
    return KK_STATUS_SUCCESS;
}

}  // namespace kk
