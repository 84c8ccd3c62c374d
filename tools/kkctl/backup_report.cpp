#include "backup_report.h"

#include <nlohmann/json.hpp>

#include "sizes.h"

namespace kkctl {

void PrintBackupJson(std::ostream& out, const BackupReport& report)
{
    const kestrelkit::Backup& result = report.result;
    const nlohmann::ordered_json document = {
        {"disk", report.disk},
        {"image", report.image},
        {"manifest", report.manifest},
        {"snapshotsRequested", result.snapshotsRequested},
        {"snapshotsUsed", result.snapshotsUsed},
        {"partitionsCopied", result.partitionsCopied},
        {"bytesCopied", result.bytesCopied},
        {"snapshotUsedBlockCopies", result.snapshotUsedBlockCopies},
        {"snapshotWholeCopies", result.snapshotWholeCopies},
        {"liveUsedBlockCopies", result.liveUsedBlockCopies},
        {"liveWholeCopies", result.liveWholeCopies},
        {"rawDiskCopies", result.rawDiskCopies},
    };
    out << document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

void PrintBackupText(std::ostream& out, const BackupReport& report)
{
    const kestrelkit::Backup& result = report.result;
    const char* snapshots = "not requested";
    if (result.snapshotsRequested) {
        snapshots = result.snapshotsUsed ? "used" : "requested, but none could be taken";
    }
    const auto line = [&out](uint32_t count, const char* source) {
        if (count > 0) {
            out << "  " << count << ' ' << source << '\n';
        }
    };
    out << "Image       " << report.image << '\n';
    out << "Manifest    " << report.manifest << '\n';
    out << "Copied      " << FormatSize(result.bytesCopied) << " (" << result.bytesCopied << " bytes)\n";
    out << "Snapshots   " << snapshots << '\n';
    out << "Partitions  " << result.partitionsCopied << '\n';
    line(result.snapshotUsedBlockCopies, "from a snapshot, used clusters only");
    line(result.snapshotWholeCopies, "from a snapshot, whole");
    line(result.liveUsedBlockCopies, "from the live volume, used clusters only");
    line(result.liveWholeCopies, "from the live volume, whole");
    line(result.rawDiskCopies, "straight from the disk");
}

}  // namespace kkctl
