#include "partition_report.h"

#include <nlohmann/json.hpp>

#include "text.h"

namespace kkctl {

void ReportPartition(Context& context, const std::string& done, const Place& place)
{
    const std::optional<Partition> found = FindPartition(context.OpenedKit(), place);
    if (!context.json) {
        context.Out() << done << ' ' << DescribePlace(place, found) << '\n';
        return;
    }
    const Partition partition = found.value_or(Partition());
    const nlohmann::ordered_json document = {
        {"disk", place.disk},
        {"startOffset", place.start},
        {"length", partition.length},
        {"fileSystemName", ToUtf8(partition.fileSystemName)},
        {"fileSystemSize", partition.fileSystemSize},
        {"driveLetter", ToUtf8(partition.driveLetter)},
    };
    context.Out() << document.dump(2) << '\n';
}

}  // namespace kkctl
