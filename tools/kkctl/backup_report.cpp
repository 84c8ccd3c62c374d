#include "backup_report.h"

#include <nlohmann/json.hpp>

#include "sizes.h"

namespace kkctl {

void PrintBackupJson(std::ostream& out, const BackupReport& report)
{
    // The record is packed, so its fields are copied: no reference may be bound to them.
    const BackupResult& result = report.result;
    const nlohmann::ordered_json document = {
        {"disk", report.disk},
        {"image", report.image},
        {"manifest", report.manifest},
        {"snapshotsRequested", result.snapshotsRequested != 0},
        {"snapshotsUsed", result.snapshotsUsed != 0},
        {"partitionsCopied", uint32_t{result.partitionsCopied}},
        {"bytesCopied", uint64_t{result.bytesCopied}},
        {"snapshotUsedBlockCopies", uint32_t{result.snapshotUsedBlockCopies}},
        {"snapshotWholeCopies", uint32_t{result.snapshotWholeCopies}},
        {"liveUsedBlockCopies", uint32_t{result.liveUsedBlockCopies}},
        {"liveWholeCopies", uint32_t{result.liveWholeCopies}},
        {"rawDiskCopies", uint32_t{result.rawDiskCopies}},
    };
    out << document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

void PrintBackupText(std::ostream& out, const BackupReport& report)
{
    const BackupResult& result = report.result;
    const char* snapshots = "not requested";
    if (result.snapshotsRequested != 0) {
        snapshots = result.snapshotsUsed != 0 ? "used" : "requested, but none could be taken";
    }
    const auto line = [&out](uint32_t count, const char* source) {
        if (count > 0) {
            out << "  " << count << ' ' << source << '\n';
        }
    };
    out << "Image       " << report.image << '\n';
    out << "Manifest    " << report.manifest << '\n';
    out << "Copied      " << FormatSize(result.bytesCopied) << " (" << uint64_t{result.bytesCopied} << " bytes)\n";
    out << "Snapshots   " << snapshots << '\n';
    out << "Partitions  " << uint32_t{result.partitionsCopied} << '\n';
    line(result.snapshotUsedBlockCopies, "from a snapshot, used clusters only");
    line(result.snapshotWholeCopies, "from a snapshot, whole");
    line(result.liveUsedBlockCopies, "from the live volume, used clusters only");
    line(result.liveWholeCopies, "from the live volume, whole");
    line(result.rawDiskCopies, "straight from the disk");
}

}  // namespace kkctl
