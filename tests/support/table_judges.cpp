#include "support/table_judges.h"

#include "support/complaint.h"
#include "support/shell.h"

namespace {

/// Of the two programs over the same library the first is made for this; the second can be told a file's sector size.
/// Its "total allocated sectors greater than the maximum" is not believed: what lies before the first slot's partition
/// counts as allocated even when other partitions are there.
std::string ComplaintOfFdisk(const std::string& file, uint32_t sectorSize)
{
    const std::string command =
        sectorSize == 512 ? "sfdisk --verify '" + file + "' 2>&1"
                          : "printf 'v\\nq\\n' | fdisk -b " + std::to_string(sectorSize) + " '" + file + "' 2>&1";
    return Complaint({"sh", "-c", "export LC_ALL=C; " + command}, "No errors detected.",
                     {"corrupt", "mismatch", "overlap", "too big", "error", "Error", "recognized", "Created a new"});
}

std::string ComplaintOfParted(const std::string& file, const std::string& label)
{
    return Complaint({"env", "LC_ALL=C.UTF-8", "parted", "-s", "-m", file, "unit", "s", "print"},
                     ":512:512:" + label + ":", {"Error", "Warning"});
}

}  // namespace

std::string ComplaintAboutGpt(const std::string& file, uint32_t sectorSize)
{
    std::string complaint = ComplaintOfFdisk(file, sectorSize);
    if (complaint.empty() && sectorSize == 512) {
        // With the smallest alignment: where partitions end is for whoever names their sizes.
        complaint =
            Complaint({"sgdisk", "-a", "1", "-v", file}, "No problems found",
                      {"Caution", "Warning", "Problem", "Invalid", "ERROR", "Creating new GPT", "converting MBR"});
    }
    if (complaint.empty() && sectorSize == 512) {
        complaint = ComplaintOfParted(file, "gpt");
    }
    return complaint;
}

std::string ComplaintAboutMbr(const std::string& file, uint32_t sectorSize)
{
    const std::string complaint = ComplaintOfFdisk(file, sectorSize);
    return complaint.empty() && sectorSize == 512 ? ComplaintOfParted(file, "msdos") : complaint;
}

std::string PartitionsForOthers(const std::string& file, uint32_t sectorSize)
{
    const uint32_t unit = sectorSize / 512;
    return Shell("LC_ALL=C.UTF-8 partx --sector-size " + std::to_string(sectorSize) +
                 " -g -P -o NR,START,SECTORS,TYPE,NAME '" + file + "' | tr -d '\"' | sed 's/[A-Z]*=//g' | " +
                 "awk '{ $2 /= " + std::to_string(unit) + "; $3 /= " + std::to_string(unit) +
                 "; sub(/ +$/, \"\"); print }'");
}
