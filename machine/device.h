#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "machine/nt_values.h"

namespace machine {

class Device;

/// One successful open: what a handle leads to.
struct OpenFile {
    std::shared_ptr<Device> device = nullptr;
    std::u16string name = {};  // as it was asked for
    std::string nameUtf8 = {};
    uint32_t access = 0;
    uint32_t share = 0;
    uint32_t disposition = 0;
    uint32_t options = 0;
    int64_t position = 0;
    uint64_t createInformation = 1;
    uint64_t openNumber = 0;  // by which a device tells its opens apart
};

/// How a transfer ended.
struct IoResult {
    Status status = kSuccess;
    uint64_t information = 0;
};

struct ControlRequest {
    uint32_t code = 0;
    std::span<const uint8_t> input = {};
    uint32_t outputRoom = 0;
};

/// A control request's end. Output reaches the caller on success and warning statuses only, at most as much as there
/// is room for. `information` is the output's size unless a test wants a lie.
struct ControlAnswer {
    Status status = kSuccess;
    std::vector<uint8_t> output = {};
    std::optional<uint64_t> information = std::nullopt;
};

/// An object that can be opened by name. Requests that a device does not know are refused as real drivers refuse them.
class Device {
public:
    virtual ~Device() = default;

    /// `rest` is what follows the device's own name: empty, or a path that begins with a backslash. May put another
    /// device behind `file`.
    virtual Status Open(OpenFile& file, std::u16string_view rest);
    /// The handle was closed.
    virtual void Close(OpenFile& file);

    virtual IoResult Read(OpenFile& file, uint64_t offset, std::span<uint8_t> into);
    virtual IoResult Write(OpenFile& file, uint64_t offset, std::span<const uint8_t> from);
    virtual ControlAnswer Control(OpenFile& file, const ControlRequest& request);
    virtual Status QueryStandardInformation(OpenFile& file, kk::FileStandardInformation& information);
    /// `name` receives the file system's name.
    virtual Status QueryFileSystemName(OpenFile& file, std::u16string& name);
    virtual Status Flush(OpenFile& file);
};

/// The bytes of a structure, for answers.
template <typename T>
std::vector<uint8_t> BytesOf(const T& value)
{
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&value);
    return {bytes, bytes + sizeof(T)};
}

}  // namespace machine
