#include "inspect_figures.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "disk_image.h"
#include "host_command.h"
#include "library_machine.h"
#include "machine/host_tools.h"
#include "machine/raw_virtual_disks.h"

namespace bench {

namespace {

constexpr size_t kWarmUps = 2;
constexpr int kInspectionsInRun = 200;
constexpr uint32_t kMostPartitions = 128;

/// The library, which looks into an image time and again.
class Inspection {
public:
    Inspection(const Settings& settings, const std::filesystem::path& image)
        : path_(LibraryPath(image)), library_(settings.dll, std::make_shared<machine::RawVirtualDisks>(true)),
          partitions_(kMostPartitions)
    {
    }

    /// The mean of many calls.
    Cost Run()
    {
        Cost cost = {};
        for (int i = 0; i < kInspectionsInRun; ++i) {
            const bench::Run run = library_.Call([&](const machine::KestrelkitApi& api) {
                return api.inspectImage(path_.c_str(), &info_, partitions_.data(), kMostPartitions, &count_);
            });
            if (run.status != KK_STATUS_SUCCESS) {
                throw std::runtime_error("the inspection ended with " + StatusText(run.status));
            }
            cost.seconds += run.cost.seconds / kInspectionsInRun;
            cost.cpuSeconds += run.cost.cpuSeconds / kInspectionsInRun;
        }
        return cost;
    }

    /// Throws unless a peer's report says the same as the library.
    void Compare(const nlohmann::json& report) const
    {
        nlohmann::json ours = {{"size", info_.virtualSize}, {"sector", info_.logicalSectorSize}};
        ours["partitions"] = nlohmann::json::array();
        for (uint32_t i = 0; i < count_; ++i) {
            ours["partitions"].push_back({partitions_[i].offset, partitions_[i].length});
        }
        for (const auto& [key, value] : ours.items()) {
            if (report.at(key) != value) {
                throw std::runtime_error("the peer found another " + key + ": " + report.at(key).dump());
            }
        }
    }

    Work DoneWork() const
    {
        Work work = library_.TransferWork("");
        for (const machine::CallRecord& call : library_.Calls()) {
            work.bytes += call.kind == machine::CallKind::ReadFile ? call.length : 0;
        }
        return work;
    }

private:
    std::u16string path_;
    LibraryMachine library_;
    ImageInfoRecord info_ = {};
    std::vector<ImagePartitionRecord> partitions_;
    uint32_t count_ = 0;
};

/// Another reader of the format, in a process of its own that tells its time for the same.
Figure MeasureAgainstLibvhdi(const Settings& settings, Inspection& inspection, const std::string& image)
{
    Figure figure = {.name = "inspect",
                     .title = "Size and partitions of that disk's image",
                     .peer = "libvhdi",
                     .gate = {Gate::Kind::TimeRatioAtMost, 1.00}};
    const std::string script = std::string(KK_BENCH_SCRIPTS) + "/inspect_with_libvhdi.py";
    const auto ours = [&] { return inspection.Run(); };
    const auto peer = [&] {
        const std::string text =
            machine::RunToolOrThrow({"/usr/bin/python3", script, image, std::to_string(kInspectionsInRun)});
        const nlohmann::json report = nlohmann::json::parse(text);
        inspection.Compare(report);
        return Cost{report.at("seconds"), report.at("cpuSeconds")};
    };
    figure.pairs = MeasurePairs(kWarmUps, settings.longPairs, ours, peer);
    figure.work = inspection.DoneWork();
    figure.remark = "means of " + std::to_string(kInspectionsInRun) + " calls";
    return figure;
}

/// What scripts do, of whose time the start of a process is a part.
Figure MeasureAgainstQemu(const Settings& settings, Inspection& inspection, const std::string& image)
{
    Figure figure = {.name = "inspect-qemu-img", .title = "The same", .peer = "qemu-img info, a process"};
    std::vector<double> starts;
    const auto ours = [&] { return inspection.Run(); };
    const auto peer = [&] {
        starts.push_back(TimeCommand({"qemu-img", "--version"}).seconds);
        return TimeCommand({"qemu-img", "info", "-f", "vhdx", "--output=json", image});
    };
    figure.pairs = MeasurePairs(kWarmUps, settings.longPairs, ours, peer);
    figure.work = inspection.DoneWork();
    const auto microseconds = static_cast<uint64_t>(Median(starts) * 1e6);
    figure.remark = "the peer lists no partitions; qemu-img --version takes " + std::to_string(microseconds) + " us";
    return figure;
}

}  // namespace

std::vector<Figure> MeasureInspections(const Settings& settings)
{
    const std::filesystem::path image = MakeDiskImage(settings);
    Inspection inspection(settings, image);
    return {MeasureAgainstLibvhdi(settings, inspection, image.string()),
            MeasureAgainstQemu(settings, inspection, image.string())};
}

}  // namespace bench
