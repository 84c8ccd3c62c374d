#include "machine/device.h"

namespace machine {

Status Device::Open(OpenFile& /*file*/, std::u16string_view rest)
{
    return rest.empty() ? kSuccess : kObjectNameNotFound;
}

void Device::Close(OpenFile& /*file*/) {}

IoResult Device::Read(OpenFile& /*file*/, uint64_t /*offset*/, std::span<uint8_t> /*into*/)
{
    return {kInvalidDeviceRequest, 0};
}

IoResult Device::Write(OpenFile& /*file*/, uint64_t /*offset*/, std::span<const uint8_t> /*from*/)
{
    return {kInvalidDeviceRequest, 0};
}

ControlAnswer Device::Control(OpenFile& /*file*/, const ControlRequest& /*request*/)
{
    return {kInvalidDeviceRequest};
}

Status Device::QueryStandardInformation(OpenFile& /*file*/, kk::FileStandardInformation& /*information*/)
{
    return kInvalidDeviceRequest;
}

Status Device::QueryFileSystemName(OpenFile& /*file*/, std::u16string& /*name*/)
{
    return kInvalidDeviceRequest;
}

Status Device::Flush(OpenFile& /*file*/)
{
    return kInvalidDeviceRequest;
}

}  // namespace machine
