#pragma once

#include <string>
#include <vector>

#include "machine/journal.h"

/// Every read, write and flush that reached a device's door, failed ones included, such as "read 512+16384": the byte
/// and the length.
inline std::vector<std::string> TransferSteps(const machine::Journal& journal)
{
    std::vector<std::string> steps;
    for (const machine::CallRecord& record : journal.Records()) {
        const std::string range = std::to_string(record.offset) + "+" + std::to_string(record.length);
        if (record.kind == machine::CallKind::ReadFile) {
            steps.push_back("read " + range);
        } else if (record.kind == machine::CallKind::WriteFile) {
            steps.push_back("write " + range);
        } else if (record.kind == machine::CallKind::Flush) {
            steps.emplace_back("flush");
        }
    }
    return steps;
}
