#include "mounted_disk.h"

#include <nlohmann/json.hpp>

namespace kkctl {

void ReportMountedDisk(const Context& context, const MountedDisk& disk)
{
    if (!context.json) {
        context.Out() << "Mounted " << disk.image
                      << (disk.number ? " as disk " + std::to_string(*disk.number)
                                      : ", as a disk whose number is not known")
                      << (disk.overlay.empty() ? "" : "; what is written to it goes into " + disk.overlay) << '\n';
        return;
    }
    nlohmann::ordered_json document = {{"image", disk.image}};
    if (!disk.overlay.empty()) {
        document["overlay"] = disk.overlay;
    }
    document["disk"] = disk.number ? nlohmann::ordered_json(*disk.number) : nlohmann::ordered_json();
    context.Out() << document.dump(2) << '\n';
}

}  // namespace kkctl
