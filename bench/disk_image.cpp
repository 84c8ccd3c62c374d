#include "disk_image.h"

#include "host_command.h"

namespace bench {

std::filesystem::path MakeDiskImage(const Settings& settings)
{
    std::filesystem::path image = settings.folder / "image.vhdx";
    if (!std::filesystem::exists(image)) {
        (void)TimeCommand({"qemu-img", "convert", "-f", "raw", "-O", "vhdx", "-o", "subformat=dynamic,block_size=2M",
                           (settings.folder / "disk.raw").string(), image.string()});
    }
    return image;
}

}  // namespace bench
