#include "figure.h"

#include <algorithm>
#include <chrono>

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

double Figure::OursSeconds() const
{
    std::vector<double> times;
    std::transform(pairs.begin(), pairs.end(), std::back_inserter(times), [](const Pair& p) { return p.oursSeconds; });
    return Median(std::move(times));
}

double Figure::PeerSeconds() const
{
    std::vector<double> times;
    std::transform(pairs.begin(), pairs.end(), std::back_inserter(times), [](const Pair& p) { return p.peerSeconds; });
    return Median(std::move(times));
}

std::vector<double> Figure::Ratios() const
{
    const bool ofSpeeds = gate.kind == Gate::Kind::SpeedRatioAtLeast;
    std::vector<double> ratios;
    std::transform(pairs.begin(), pairs.end(), std::back_inserter(ratios), [&](const Pair& pair) {
        return ofSpeeds ? pair.peerSeconds / pair.oursSeconds : pair.oursSeconds / pair.peerSeconds;
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

std::optional<bool> Figure::Passes() const
{
    switch (gate.kind) {
    case Gate::Kind::TimeRatioAtMost:
        return Ratio() <= gate.limit;
    case Gate::Kind::SpeedRatioAtLeast:
        return Ratio() >= gate.limit;
    case Gate::Kind::OursAtMostSeconds:
        return OursSeconds() <= gate.limit;
    case Gate::Kind::None:
        break;
    }
    return std::nullopt;
}

std::vector<Pair> MeasurePairs(size_t warmUps, size_t pairs, const std::function<double()>& ours,
                               const std::function<double()>& peer)
{
    for (size_t i = 0; i < warmUps; ++i) {
        (void)ours();
        (void)peer();
    }
    std::vector<Pair> measured;
    for (size_t i = 0; i < pairs; ++i) {
        Pair pair = {};
        if (i % 2 == 0) {
            pair.oursSeconds = ours();
            pair.peerSeconds = peer();
        } else {
            pair.peerSeconds = peer();
            pair.oursSeconds = ours();
        }
        measured.push_back(pair);
    }
    return measured;
}

}  // namespace bench
