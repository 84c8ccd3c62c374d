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

}  // namespace machine
