#include "figure.h"

#include <algorithm>
#include <chrono>
#include <ctime>

namespace bench {

double Median(std::vector<double> values)
{
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double NowSeconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double ThreadCpuSeconds()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double Figure::OursSeconds() const
{
    std::vector<double> times;
    std::transform(pairs.begin(), pairs.end(), std::back_inserter(times), [](const Pair& p) { return p.ours.seconds; });
    return Median(std::move(times));
}

double Figure::PeerSeconds() const
{
    std::vector<double> times;
    std::transform(pairs.begin(), pairs.end(), std::back_inserter(times), [](const Pair& p) { return p.peer.seconds; });
    return Median(std::move(times));
}

std::vector<double> Figure::Ratios() const
{
    const bool ofSpeeds = gate.kind == Gate::Kind::SpeedRatioAtLeast;
    std::vector<double> ratios;
    std::transform(pairs.begin(), pairs.end(), std::back_inserter(ratios), [&](const Pair& pair) {
        return ofSpeeds ? pair.peer.seconds / pair.ours.seconds : pair.ours.seconds / pair.peer.seconds;
    });
    return ratios;
}

double Figure::Ratio() const
{
    return Median(Ratios());
}

double Figure::LowestRatio() const
{
    const std::vector<double> ratios = Ratios();
    return *std::min_element(ratios.begin(), ratios.end());
}

double Figure::HighestRatio() const
{
    const std::vector<double> ratios = Ratios();
    return *std::max_element(ratios.begin(), ratios.end());
}

std::optional<double> Figure::CpuTimeRatio() const
{
    std::vector<double> ratios;
    for (const Pair& pair : pairs) {
        if (pair.peer.cpuSeconds == 0) {
            return std::nullopt;
        }
        ratios.push_back(pair.ours.cpuSeconds / pair.peer.cpuSeconds);
    }
    return Median(std::move(ratios));
}

std::optional<double> Figure::ShareOfReadSpeed() const
{
    std::vector<double> ratios;
    for (const Pair& pair : pairs) {
        if (pair.readSeconds == 0) {
            return std::nullopt;
        }
        ratios.push_back(pair.readSeconds / pair.ours.seconds);
    }
    return Median(std::move(ratios));
}

std::optional<bool> Figure::TransfersHold() const
{
    if (!expected) {
        return std::nullopt;
    }
    return (expected->reads == 0 || work.reads == expected->reads) &&
           (expected->writes == 0 || work.writes == expected->writes) && work.largestTransfer <= Transfers::kMostBytes;
}

std::optional<bool> Figure::Passes() const
{
    if (gate.kind == Gate::Kind::None && gate.mostSeconds == 0) {
        return std::nullopt;
    }
    if (gate.mostSeconds != 0 && OursSeconds() > gate.mostSeconds) {
        return false;
    }
    switch (gate.kind) {
    case Gate::Kind::TimeRatioAtMost:
        return Ratio() <= gate.limit;
    case Gate::Kind::SpeedRatioAtLeast:
        return Ratio() >= gate.limit;
    case Gate::Kind::None:
        break;
    }
    return true;
}

std::vector<Pair> MeasurePairs(size_t warmUps, size_t pairs, const std::function<Cost()>& ours,
                               const std::function<Cost()>& peer, const std::function<double()>& readSeconds)
{
    for (size_t i = 0; i < warmUps; ++i) {
        (void)ours();
        (void)peer();
    }
    std::vector<Pair> measured;
    for (size_t i = 0; i < pairs; ++i) {
        Pair pair = {};
        if (i % 2 == 0) {
            pair.ours = ours();
            pair.peer = peer();
        } else {
            pair.peer = peer();
            pair.ours = ours();
        }
        pair.readSeconds = readSeconds ? readSeconds() : 0;
        measured.push_back(pair);
    }
    return measured;
}

}  // namespace bench
