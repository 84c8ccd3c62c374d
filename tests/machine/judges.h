#pragma once

#include <gmock/gmock.h>

#include <string>

#include "machine/host_tools.h"

// What other people's tools say of a disk or a volume. The exit codes of these tools lie; their words do not.

namespace machine {

inline void ExpectWithout(const std::string& text, std::initializer_list<const char*> words)
{
    for (const char* const word : words) {
        EXPECT_THAT(text, ::testing::Not(::testing::HasSubstr(word)));
    }
}

/// For a GPT with sectors of 512 bytes.
inline void ExpectSgdiskIsContent(const std::string& path)
{
    const std::string text = RunTool({"sgdisk", "-v", path}).text;
    EXPECT_THAT(text, ::testing::HasSubstr("No problems found"));
    ExpectWithout(text, {"Caution", "Warning", "Problem", "Invalid", "ERROR", "Creating new", "converting MBR"});
}

/// For GPT and MBR with sectors of 512 bytes.
inline void ExpectSfdiskIsContent(const std::string& path)
{
    const std::string text = RunTool({"sfdisk", "--verify", path}).text;
    EXPECT_THAT(text, ::testing::HasSubstr("No errors detected"));
    ExpectWithout(text, {"corrupt", "mismatch", "overlaps", "too big"});
}

/// What fdisk lists of a GPT or MBR; it checks both copies of a GPT and takes sectors of any size.
inline std::string ListedByFdisk(const std::string& path, uint32_t sectorSize)
{
    std::string text =
        RunToolOrThrow({"fdisk", "-b", std::to_string(sectorSize), "-l", "-o", "Device,Start,Sectors", path});
    ExpectWithout(text, {"corrupt", "mismatch", "overlap"});
    return text;
}

/// For an NTFS volume that is clean and as long as the file, the copy of the boot sector included.
inline void ExpectNtfsToolsAreContent(const std::string& path)
{
    const ToolResult checked = RunTool({"ntfsresize", "--info", "--no-progress-bar", path});
    EXPECT_EQ(checked.exitCode, 0) << checked.text;
    ExpectWithout(checked.text, {"ERROR", "inconsistent", "scheduled for check"});
    const ToolResult fixed = RunTool({"ntfsfix", "--no-action", path});
    EXPECT_EQ(fixed.exitCode, 0) << fixed.text;
    EXPECT_THAT(fixed.text, ::testing::HasSubstr("Checking the alternate boot sector... OK"));
    EXPECT_THAT(fixed.text, ::testing::HasSubstr("processed successfully"));
    EXPECT_THAT(RunToolOrThrow({"ntfsinfo", "-m", path}), ::testing::HasSubstr("Volume Flags: 0x0000"));
}

}  // namespace machine
