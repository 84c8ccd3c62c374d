#include "support/ntfs_judges.h"

#include "support/complaint.h"

std::string ComplaintAboutNtfs(const std::string& file)
{
    const std::vector<std::string> commands[] = {{"ntfsresize", "--info", "--no-progress-bar", file},
                                                 {"ntfsfix", "--no-action", file},
                                                 {"ntfsfix", "--no-action", file},
                                                 {"ntfsinfo", "-m", file}};
    const std::string praises[] = {"You might resize at", "Checking the alternate boot sector... OK",
                                   "processed successfully", "Volume Flags: 0x0000"};
    std::string complaint;
    for (size_t i = 0; i < std::size(praises) && complaint.empty(); ++i) {
        complaint = Complaint(commands[i], praises[i], {"ERROR", "inconsistent", "scheduled for check"});
    }
    return complaint;
}
