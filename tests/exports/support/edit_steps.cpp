#include "exports/support/edit_steps.h"

#include <map>

#include "machine/nt_values.h"

using machine::CallKind;
using machine::CallRecord;

namespace {

/// "drive 0", "volume 1", "mounts"; empty for everything else.
std::string ShortName(const std::string& object)
{
    const std::map<std::string, std::string> names = {
        {"PhysicalDrive", "drive "}, {"HarddiskVolume", "volume "}, {"MountPointManager", "mounts"}};
    for (const auto& [part, name] : names) {
        if (const size_t found = object.find(part); found != std::string::npos) {
            return name + object.substr(found + part.size());
        }
    }
    return {};
}

/// Empty for requests that only look something up.
std::string RequestName(uint32_t code)
{
    const std::map<uint32_t, std::string> names = {
        {0x700A0, "geometry of "}, {0x70050, "layout of "}, {0x70140, "refresh "}, {0x7C0D0, "grow in "},
        {0x90018, "lock "},        {0x90020, "dismount "},  {0x9001C, "unlock "},  {0x900F0, "extend "},
        {0x901B0, "shrink "},      {0x6D0008, "query "},
    };
    const auto found = names.find(code);
    return found == names.end() ? std::string() : found->second;
}

std::string StepOf(const CallRecord& call, const std::string& object)
{
    switch (call.kind) {
    case CallKind::CreateFile:
        if (static_cast<int32_t>(call.result) == machine::kObjectNameNotFound) {
            return {};
        }
        return "open " + object + ((call.access & machine::kFileWriteData) != 0 ? " for writing" : "");
    case CallKind::Close:
        return "close " + object;
    case CallKind::ReadFile:
        return "read " + object + " at " + std::to_string(call.offset);
    case CallKind::WriteFile:
        return "write " + object + " at " + std::to_string(call.offset);
    case CallKind::Flush:
        return "flush " + object;
    case CallKind::DeviceControl:
    case CallKind::FsControl: {
        const std::string name = RequestName(call.code);
        return name.empty() ? name : name + object;
    }
    default:
        return {};
    }
}

}  // namespace

std::vector<std::string> EditSteps(const machine::Journal& journal)
{
    std::vector<std::string> steps;
    for (const CallRecord& call : journal.Records()) {
        const bool isMountCall = call.kind == CallKind::Win32Bool;
        const std::string object = isMountCall ? std::string() : ShortName(call.object);
        const std::string step = isMountCall ? call.name : object.empty() ? std::string() : StepOf(call, object);
        if (!step.empty()) {
            steps.push_back(step);
        }
    }
    return steps;
}
