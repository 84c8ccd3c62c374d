#include "exports/support/restore_steps.h"

#include <map>

#include "machine/nt_values.h"

using machine::CallKind;
using machine::CallRecord;

namespace {

std::string ShortName(const std::string& object)
{
    if (object.find(".vhdx") != std::string::npos) {
        return "image";
    }
    const std::map<std::string, std::string> names = {{"PhysicalDrive", "drive "}, {"HarddiskVolume", "volume "}};
    for (const auto& [part, name] : names) {
        if (const size_t found = object.find(part); found != std::string::npos) {
            return name + object.substr(found + part.size());
        }
    }
    return object;
}

std::string RequestName(uint32_t code)
{
    const std::map<uint32_t, std::string> names = {
        {0x700A0, "geometry of "}, {0x70050, "layout of "}, {0x70140, "refresh "},
        {0x7405C, "size of "},     {0x90018, "lock "},      {0x90020, "dismount "},
        {0x9001C, "unlock "},      {0x900F0, "extend "},    {0x90064, "NTFS data of "}};
    const auto found = names.find(code);
    return found == names.end() ? "request " + std::to_string(code) + " to " : found->second;
}

std::string Transfer(const CallRecord& call)
{
    return " at " + std::to_string(call.offset) + "+" + std::to_string(call.length);
}

std::string StepOf(const CallRecord& call)
{
    const std::string object = ShortName(call.object);
    switch (call.kind) {
    case CallKind::CreateFile:
        return "open " + object + ((call.access & machine::kFileWriteData) != 0 ? " for writing" : "");
    case CallKind::Close:
        return "close " + object;
    case CallKind::ReadFile:
        return "read " + object + (object == "image" ? std::string() : Transfer(call));
    case CallKind::WriteFile:
        return "write " + object + Transfer(call);
    case CallKind::Flush:
        return "flush " + object;
    case CallKind::DeviceControl:
    case CallKind::FsControl:
        return RequestName(call.code) + object;
    default:
        return {};
    }
}

}  // namespace

std::vector<std::string> RestoreSteps(const machine::Journal& journal)
{
    std::vector<std::string> steps;
    for (const CallRecord& call : journal.Records()) {
        const std::string step = StepOf(call);
        const bool again = step == "read image" && !steps.empty() && steps.back() == step;
        if (!step.empty() && !again) {
            steps.push_back(step);
        }
    }
    return steps;
}
