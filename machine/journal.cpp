#include "machine/journal.h"

#include <algorithm>
#include <ostream>
#include <sstream>

#include "machine/text.h"

namespace machine {

size_t Journal::Count(const CallPattern& pattern) const
{
    return static_cast<size_t>(std::count_if(records_.begin(), records_.end(),
                                             [&](const CallRecord& record) { return pattern.Matches(record); }));
}

std::vector<CallRecord> Journal::FindAll(const CallPattern& pattern) const
{
    std::vector<CallRecord> found;
    std::copy_if(records_.begin(), records_.end(), std::back_inserter(found),
                 [&](const CallRecord& record) { return pattern.Matches(record); });
    return found;
}

const CallRecord* Journal::First(const CallPattern& pattern) const
{
    const auto found = std::find_if(records_.begin(), records_.end(),
                                    [&](const CallRecord& record) { return pattern.Matches(record); });
    return found == records_.end() ? nullptr : &*found;
}

const CallRecord* Journal::Last(const CallPattern& pattern) const
{
    const auto found = std::find_if(records_.rbegin(), records_.rend(),
                                    [&](const CallRecord& record) { return pattern.Matches(record); });
    return found == records_.rend() ? nullptr : &*found;
}

bool Journal::Before(const CallPattern& earlier, const CallPattern& later) const
{
    const CallRecord* const first = First(earlier);
    const CallRecord* const last = Last(later);
    return first != nullptr && last != nullptr && first < last;
}

std::string Journal::Text() const
{
    std::ostringstream text;
    for (const CallRecord& record : records_) {
        text << record << '\n';
    }
    return text.str();
}

void Journal::Add(CallRecord record)
{
    if (recording_) {
        records_.push_back(std::move(record));
    }
}

std::vector<uint8_t> Journal::InputToKeep(std::span<const uint8_t> input) const
{
    if (!recording_) {
        return {};
    }
    const std::span<const uint8_t> kept = input.first(std::min(input.size(), kKeptInputBytes));
    return {kept.begin(), kept.end()};
}

std::ostream& operator<<(std::ostream& stream, const CallRecord& record)
{
    stream << '#' << record.index << ' ' << record.name;
    if (!record.object.empty()) {
        stream << " [" << record.object << ']';
    }
    if (record.code != 0) {
        stream << " code " << Hex(record.code);
    }
    if (record.offset != 0 || record.length != 0) {
        stream << " at " << record.offset << " for " << record.length;
    }
    if (record.access != 0) {
        stream << " access " << Hex(record.access) << " share " << record.share << " disposition " << record.disposition
               << " options " << Hex(record.options);
    }
    stream << " -> " << Hex(record.result) << ", " << record.information;
    if (record.struck) {
        stream << " (by order)";
    }
    return stream;
}

}  // namespace machine
