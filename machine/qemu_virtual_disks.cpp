#include "machine/qemu_virtual_disks.h"

#include <bit>
#include <stdexcept>
#include <string>

#include "machine/host_tools.h"
#include "machine/image_format.h"
#include "machine/nbd_storage.h"

namespace machine {
namespace {

uint32_t ErrorOf(const ToolResult& creation)
{
    if (creation.exitCode == 0) {
        return kErrorSuccess;
    }
    if (creation.text.find("No space left") != std::string::npos) {
        return kErrorDiskFull;
    }
    throw std::runtime_error("qemu-img: " + creation.text);
}

}  // namespace

uint32_t QemuVirtualDisks::Create(const NewImage& image)
{
    if (image.sectorBytes != 512 || !std::has_single_bit(image.blockBytes)) {
        return kErrorNotSupported;
    }
    return ErrorOf(RunTool({"qemu-img", "create", "-q", "-f", "vhdx", "-o",
                            "subformat=dynamic,block_size=" + std::to_string(image.blockBytes), image.file.string(),
                            std::to_string(image.sizeBytes)}));
}

uint32_t QemuVirtualDisks::CreateOverlay(const std::filesystem::path& file, const std::filesystem::path& parent)
{
    return ErrorOf(RunTool({"qemu-img", "create", "-q", "-f", QemuName(ImageFormat::Overlay), "-b", parent.string(),
                            "-F", QemuName(FormatOf(parent)), file.string()}));
}

uint32_t QemuVirtualDisks::Inspect(const std::filesystem::path& file, ImageFacts& facts)
{
    if (!std::filesystem::exists(file)) {
        return kErrorFileNotFound;
    }
    const ImageFormat format = FormatOf(file);
    if (format == ImageFormat::None) {
        return kErrorVirtualDiskFormatUnknown;
    }
    if (RunTool({"qemu-img", "info", "-U", "-f", QemuName(format), file.string()}).exitCode != 0) {
        return kErrorFileCorrupt;
    }
    facts.parent = format == ImageFormat::Overlay ? OverlayParent(file) : std::filesystem::path();
    return kErrorSuccess;
}

uint32_t QemuVirtualDisks::Open(const std::filesystem::path& file, ImageAccess access, OpenedImage& disk)
{
    if (!std::filesystem::exists(file)) {
        return kErrorFileNotFound;
    }
    const ImageFormat format = FormatOf(file);
    if (format == ImageFormat::None) {
        return kErrorFileCorrupt;
    }
    const auto mode = access == ImageAccess::ReadOnly ? NbdStorage::Mode::ReadOnly : NbdStorage::Mode::ReadWrite;
    try {
        disk = {.storage = std::make_unique<NbdStorage>(file, format, mode), .sectorBytes = 512};
    } catch (const std::runtime_error&) {
        return kErrorFileCorrupt;  // the server starts for every intact image
    }
    return kErrorSuccess;
}

}  // namespace machine
