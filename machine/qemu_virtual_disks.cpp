#include "machine/qemu_virtual_disks.h"

#include <bit>
#include <stdexcept>
#include <string>

#include "machine/host_tools.h"
#include "machine/nbd_storage.h"

namespace machine {

uint32_t QemuVirtualDisks::Create(const NewImage& image)
{
    if (image.sectorBytes != 512 || !std::has_single_bit(image.blockBytes)) {
        return kErrorNotSupported;
    }
    const ToolResult result = RunTool({"qemu-img", "create", "-q", "-f", "vhdx", "-o",
                                       "subformat=dynamic,block_size=" + std::to_string(image.blockBytes),
                                       image.file.string(), std::to_string(image.sizeBytes)});
    if (result.exitCode == 0) {
        return kErrorSuccess;
    }
    if (result.text.find("No space left") != std::string::npos) {
        return kErrorDiskFull;
    }
    throw std::runtime_error("qemu-img: " + result.text);
}

uint32_t QemuVirtualDisks::Open(const std::filesystem::path& file, OpenedImage& disk)
{
    if (!std::filesystem::exists(file)) {
        return kErrorFileNotFound;
    }
    try {
        disk = {.storage = std::make_unique<NbdStorage>(file), .sectorBytes = 512};
    } catch (const std::runtime_error&) {
        return kErrorFileCorrupt;  // the server starts for every intact image
    }
    return kErrorSuccess;
}

}  // namespace machine
