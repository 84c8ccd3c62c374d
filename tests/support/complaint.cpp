#include "support/complaint.h"

#include <algorithm>

#include "machine/host_tools.h"

std::string Complaint(const std::vector<std::string>& command, const std::string& praise,
                      const std::vector<std::string>& badWords)
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
