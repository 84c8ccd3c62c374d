#include "report.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "read_block.h"

namespace bench {

namespace {

template <typename... Values>
std::string Format(const char* format, Values... values)
{
    char text[400];
    std::snprintf(text, sizeof(text), format, values...);
    return text;
}

std::string TimeText(double seconds)
{
    return seconds >= 0.1 ? Format("%.3f s", seconds) : Format("%.3f ms", seconds * 1e3);
}

std::string GateText(const Gate& gate)
{
    std::string text;
    if (gate.kind != Gate::Kind::None) {
        text = Format(gate.kind == Gate::Kind::TimeRatioAtMost ? "time <= %.2f" : "speed >= %.2f", gate.limit);
    }
    if (gate.mostSeconds != 0) {
        text += Format("%s<= %.2f ms", text.empty() ? "" : ", ", gate.mostSeconds * 1e3);
    }
    return text.empty() ? "-" : text;
}

const char* VerdictText(const Figure& figure)
{
    const std::optional<bool> passes = figure.Passes();
    return !passes ? "-" : *passes ? "PASS" : "over";
}

std::string RatioText(const Figure& figure)
{
    const char* const kind = figure.gate.kind == Gate::Kind::SpeedRatioAtLeast ? "speed" : "time";
    const int digits = figure.Ratio() < 0.1 ? 3 : 2;
    return Format("%s %.*f (%.*f..%.*f)", kind, digits, figure.Ratio(), digits, figure.LowestRatio(), digits,
                  figure.HighestRatio());
}

std::string CpuText(const Figure& figure)
{
    const std::optional<double> ratio = figure.CpuTimeRatio();
    return ratio ? Format(", processor time %.2f", *ratio) : "";
}

std::string SpeedText(const Figure& figure)
{
    const std::optional<double> share = figure.ShareOfReadSpeed();
    if (!share) {
        return "";
    }
    return Format("; %.3g GB/s, %.2g of the speed of reading alone",
                  static_cast<double>(figure.work.bytes) / figure.OursSeconds() * 1e-9, *share);
}

const char* TransfersText(const Figure& figure)
{
    const std::optional<bool> hold = figure.TransfersHold();
    return !hold ? "" : *hold ? " (PASS)" : " (NOT AS THEY MUST BE)";
}

std::string WorkText(const Figure& figure)
{
    const Work& work = figure.work;
    std::string text = work.bytes < (1 << 20) ? Format("%.1f KiB", static_cast<double>(work.bytes) / (1 << 10))
                                              : Format("%.1f MiB", static_cast<double>(work.bytes) / (1 << 20));
    if (work.reads != 0) {
        text +=
            Format(", %llu reads, %llu writes, none above %llu bytes", static_cast<unsigned long long>(work.reads),
                   static_cast<unsigned long long>(work.writes), static_cast<unsigned long long>(work.largestTransfer));
    }
    text += TransfersText(figure);
    if (work.heapBytes != 0) {
        text += Format(", heap peak %.1f MiB", static_cast<double>(work.heapBytes) / (1 << 20));
    }
    return text;
}

std::string ProcessorName()
{
    std::ifstream information("/proc/cpuinfo");
    for (std::string line; std::getline(information, line);) {
        if (line.starts_with("model name")) {
            return line.substr(line.find(':') + 2);
        }
    }
    return "unknown processor";
}

nlohmann::ordered_json JsonOf(const Figure& figure)
{
    nlohmann::ordered_json item = {
        {"name", figure.name},
        {"title", figure.title},
        {"peer", figure.peer},
        {"pairs", figure.pairs.size()},
        {"oursSeconds", figure.OursSeconds()},
        {"peerSeconds", figure.PeerSeconds()},
        {"ratioOf", figure.gate.kind == Gate::Kind::SpeedRatioAtLeast ? "speeds" : "times"},
        {"ratio", figure.Ratio()},
        {"lowestRatio", figure.LowestRatio()},
        {"highestRatio", figure.HighestRatio()},
        {"gate", figure.Passes() ? nlohmann::ordered_json(GateText(figure.gate)) : nullptr},
        {"passes", nullptr},
        {"cpuTimeRatio", nullptr},
        {"shareOfReadSpeed", nullptr},
        {"transfersHold", nullptr},
        {"bytes", figure.work.bytes},
        {"reads", figure.work.reads},
        {"writes", figure.work.writes},
        {"largestTransfer", figure.work.largestTransfer},
        {"heapPeakBytes", figure.work.heapBytes},
        {"remark", figure.remark},
    };
    if (const std::optional<bool> passes = figure.Passes()) {
        item["passes"] = *passes;
    }
    if (const std::optional<double> ratio = figure.CpuTimeRatio()) {
        item["cpuTimeRatio"] = *ratio;
    }
    if (const std::optional<bool> hold = figure.TransfersHold()) {
        item["transfersHold"] = *hold;
    }
    if (const std::optional<double> share = figure.ShareOfReadSpeed()) {
        item["shareOfReadSpeed"] = *share;
    }
    return item;
}

}  // namespace

std::string MachineClass()
{
    double load = 0;
    (void)getloadavg(&load, 1);
    return ProcessorName() + Format(", %u processors, load %.1f, memory beyond the caches read at %.1f GB/s",
                                    std::thread::hardware_concurrency(), load, MemoryReadSpeed() * 1e-9);
}

std::string TableText(const std::vector<Figure>& figures)
{
    std::string text = MachineClass() + "\n\n";
    text += Format("%-45s %10s  %-25s %10s  %-26s %-25s %s\n", "Figure", "ours", "peer", "peer's", "ratio (min..max)",
                   "gate", "verdict");
    for (const Figure& figure : figures) {
        text +=
            Format("%-45s %10s  %-25s %10s  %-26s %-25s %s\n", figure.title.c_str(),
                   TimeText(figure.OursSeconds()).c_str(), figure.peer.c_str(), TimeText(figure.PeerSeconds()).c_str(),
                   RatioText(figure).c_str(), GateText(figure.gate).c_str(), VerdictText(figure));
        text += Format("    %zu pairs%s; %s%s%s%s\n", figure.pairs.size(), CpuText(figure).c_str(),
                       WorkText(figure).c_str(), SpeedText(figure).c_str(), figure.remark.empty() ? "" : "; ",
                       figure.remark.c_str());
    }
    return text;
}

std::string JsonText(const std::vector<Figure>& figures)
{
    nlohmann::ordered_json items = nlohmann::ordered_json::array();
    for (const Figure& figure : figures) {
        items.push_back(JsonOf(figure));
    }
    const nlohmann::ordered_json report = {{"machine", MachineClass()}, {"figures", items}};
    return report.dump(2) + "\n";
}

}  // namespace bench
