#include "support/table_judges.h"

#include <algorithm>
#include <vector>

#include "machine/host_tools.h"
#include "support/shell.h"

namespace {

using Words = std::vector<std::string>;

/// The text of a checker that does not praise, or says one of the bad words; words of praise may contain one.
std::string Complaint(const Words& command, const std::string& praise, const Words& badWords)
{
    const machine::ToolResult result = machine::RunTool(command);
    std::string text = result.text;
    const size_t found = text.find(praise);
    if (found != std::string::npos) {
        text.erase(found, praise.size());
    }
    const bool isFine = result.exitCode == 0 && found != std::string::npos &&
                        std::none_of(badWords.begin(), badWords.end(),
                                     [&](const std::string& word) { return text.find(word) != std::string::npos; });
    return isFine ? "" : command.front() + " exited with " + std::to_string(result.exitCode) + "\n" + result.text;
}

/// Of the two programs over the same library the first is made for this; the second can be told a file's sector size.
std::string ComplaintOfFdisk(const std::string& file, uint32_t sectorSize)
{
    const std::string command =
        sectorSize == 512 ? "sfdisk --verify '" + file + "' 2>&1"
                          : "printf 'v\\nq\\n' | fdisk -b " + std::to_string(sectorSize) + " '" + file + "' 2>&1";
    return Complaint({"sh", "-c", "export LC_ALL=C; " + command}, "No errors detected.",
                     {"corrupt", "mismatch", "overlap", "too big", "error", "Error", "greater", "recognized"});
}

std::string ComplaintOfParted(const std::string& file, const std::string& label)
{
    return Complaint({"parted", "-s", "-m", file, "unit", "s", "print"}, ":512:512:" + label + ":",
                     {"Error", "Warning"});
}

}  // namespace

std::string ComplaintAboutGpt(const std::string& file, uint32_t sectorSize)
{
    std::string complaint = ComplaintOfFdisk(file, sectorSize);
    if (complaint.empty() && sectorSize == 512) {
        complaint =
            Complaint({"sgdisk", "-v", file}, "No problems found",
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
