#include "machine/image_format.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <span>
#include <string>

namespace machine {
namespace {

constexpr char kVhdxSignature[] = "vhdxfile";
constexpr uint8_t kOverlaySignature[] = {'Q', 'F', 'I', 0xFB};
constexpr size_t kParentPlaceOffset = 8;
constexpr size_t kParentLengthOffset = 16;
constexpr size_t kHeadBytes = 20;
constexpr uint32_t kLongestParent = 1023;

using Head = std::array<uint8_t, kHeadBytes>;

/// Zeros stand in for what the file does not have.
Head ReadHead(const std::filesystem::path& file)
{
    Head head = {};
    std::ifstream(file, std::ios::binary).read(reinterpret_cast<char*>(head.data()), head.size());
    return head;
}

/// Numbers in an overlay begin with their highest byte.
uint64_t NumberOf(std::span<const uint8_t> bytes)
{
    uint64_t number = 0;
    for (const uint8_t byte : bytes) {
        number = number << 8 | byte;
    }
    return number;
}

}  // namespace

ImageFormat FormatOf(const std::filesystem::path& file)
{
    const Head head = ReadHead(file);
    if (std::memcmp(head.data(), kVhdxSignature, sizeof(kVhdxSignature) - 1) == 0) {
        return ImageFormat::Vhdx;
    }
    const bool isOverlay = std::memcmp(head.data(), kOverlaySignature, sizeof(kOverlaySignature)) == 0;
    return isOverlay ? ImageFormat::Overlay : ImageFormat::None;
}

std::filesystem::path OverlayParent(const std::filesystem::path& overlay)
{
    const Head head = ReadHead(overlay);
    const uint64_t place = NumberOf(std::span(head).subspan(kParentPlaceOffset, 8));
    const uint64_t length = NumberOf(std::span(head).subspan(kParentLengthOffset, 4));
    if (place == 0 || length > kLongestParent) {
        return {};
    }
    std::string name(length, '\0');
    std::ifstream stream(overlay, std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(place));
    stream.read(name.data(), static_cast<std::streamsize>(length));
    return stream ? name : std::string();
}

const char* QemuName(ImageFormat format)
{
    return format == ImageFormat::Overlay ? "qcow2" : "vhdx";
}

}  // namespace machine
