#pragma once

#include <filesystem>

namespace machine {

/// What a file of the host is to the virtual disks, by its first bytes.
enum class ImageFormat {
    None,
    Vhdx,
    Overlay,  // QEMU's own format, since QEMU writes no differencing VHDX
};

ImageFormat FormatOf(const std::filesystem::path& file);

/// The image that an overlay stands on; empty when it names none.
std::filesystem::path OverlayParent(const std::filesystem::path& overlay);

/// A format's name on QEMU's command lines.
const char* QemuName(ImageFormat format);

}  // namespace machine
