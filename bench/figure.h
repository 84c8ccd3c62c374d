#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace bench {

/// What happened within one measured run; the same in every run, or the times would say nothing.
struct Work {
    uint64_t reads = 0;
    uint64_t writes = 0;
    uint64_t largestTransfer = 0;  // bytes
    uint64_t bytes = 0;            // that were copied or looked at
    uint64_t heapBytes = 0;        // most that the library had from the heap at once; 0: not looked at
    bool operator==(const Work&) const = default;
};

/// What one run took.
struct Cost {
    double seconds = 0;
    double cpuSeconds = 0;  // of the processor; 0: not looked at
};

/// Two runs right after one another.
struct Pair {
    Cost ours;
    Cost peer;
    double readSeconds = 0;  // of nothing but reading as many bytes, just as warm; 0: not looked at
};

/// What a figure is held against.
struct Gate {
    enum class Kind {
        None,
        TimeRatioAtMost,    // our time / the peer's time
        SpeedRatioAtLeast,  // the peer's time / our time
    };
    Kind kind = Kind::None;
    double limit = 0;
    double mostSeconds = 0;  // that ours may take besides; 0: any
};

/// How many transfers there must be, not one more or less, none of them too long. 0: any number.
struct Transfers {
    static constexpr uint64_t kMostBytes = 8 << 20;

    uint64_t reads = 0;
    uint64_t writes = 0;
};

/// One line of the report: the medians of pairs that ran in alternation.
struct Figure {
    std::string name = {};   // for scripts and for --only
    std::string title = {};  // for people
    std::string peer = {};
    Gate gate = {};
    std::optional<Transfers> expected = {};
    std::vector<Pair> pairs = {};
    Work work = {};
    std::string remark = {};

    double OursSeconds() const;
    double PeerSeconds() const;
    /// The median of the pairs' ratios: of times, or of speeds when the gate asks for these.
    double Ratio() const;
    double LowestRatio() const;
    double HighestRatio() const;
    /// The median ratio of processor times, which other programs disturb less. Nothing when they were not taken.
    std::optional<double> CpuTimeRatio() const;
    /// Our speed by that of reading alone, the median. Nothing when that was not measured.
    std::optional<double> ShareOfReadSpeed() const;
    /// Whether the transfers are as they must be. Nothing when that is not known.
    std::optional<bool> TransfersHold() const;
    /// Of the times. Nothing when there is no gate.
    std::optional<bool> Passes() const;

private:
    std::vector<double> Ratios() const;
};

double Median(std::vector<double> values);

/// Runs both sides untimed `warmUps` times, then `pairs` times, each pair in the other order than the one before.
/// Either side returns its own cost. `readSeconds` follows when there is one.
std::vector<Pair> MeasurePairs(size_t warmUps, size_t pairs, const std::function<Cost()>& ours,
                               const std::function<Cost()>& peer, const std::function<double()>& readSeconds = {});

/// A clock that never goes back.
double NowSeconds();

/// The processor time that this thread has had.
double ThreadCpuSeconds();

}  // namespace bench
