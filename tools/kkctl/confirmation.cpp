#include "confirmation.h"

namespace kkctl {

bool Confirm(const Context& context, const std::string& question)
{
    if (!context.AsksFirst()) {
        return true;
    }
    context.Err() << "kkctl: " << question << " [y/N] " << std::flush;
    const std::optional<std::string> answer = context.ReadLine();
    if (answer == "y" || answer == "Y" || answer == "yes") {
        return true;
    }
    context.Err() << "kkctl: nothing was done\n";
    return false;
}

bool ConfirmForPartition(Context& context, const std::string& verb, const Place& place, const std::string& consequence)
{
    if (!context.AsksFirst()) {
        return true;  // the listing takes its time
    }
    const std::string partition = DescribePlace(place, FindPartition(context.OpenedKit(), place));
    return Confirm(context, verb + " " + partition + " " + consequence + "?");
}

}  // namespace kkctl
