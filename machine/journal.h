#pragma once

#include <iosfwd>
#include <span>
#include <string>
#include <vector>

#include "machine/calls.h"

namespace machine {

/// Every call that the machine received, in the order in which the calls ended.
class Journal {
public:
    const std::vector<CallRecord>& Records() const { return records_; }
    void Clear() { records_.clear(); }

    /// Long runs may do without records; calls are numbered all the same.
    void SetRecording(bool recording) { recording_ = recording; }

    size_t Count(const CallPattern& pattern) const;
    std::vector<CallRecord> FindAll(const CallPattern& pattern) const;

    /// The first or the last record that fits, or null. Valid until the next call or Clear.
    const CallRecord* First(const CallPattern& pattern) const;
    const CallRecord* Last(const CallPattern& pattern) const;

    /// Whether some call that fits `earlier` ended before some call that fits `later`.
    bool Before(const CallPattern& earlier, const CallPattern& later) const;

    /// One line a call, for people.
    std::string Text() const;

    void Add(CallRecord record);

    /// As much of `input` as a record keeps.
    std::vector<uint8_t> InputToKeep(std::span<const uint8_t> input) const;

private:
    static constexpr size_t kKeptInputBytes = 4096;

    bool recording_ = true;
    std::vector<CallRecord> records_;
};

std::ostream& operator<<(std::ostream& stream, const CallRecord& record);

}  // namespace machine
