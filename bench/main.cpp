// Measures the shipped DLL in the simulated machine against named peers. See docs/performance.md.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <limits>
#include <malloc.h>

#include "bitmap_figures.h"
#include "checksum_figures.h"
#include "copy_figures.h"
#include "inspect_figures.h"
#include "primitive_figures.h"
#include "report.h"
#include "restore_figures.h"
#include "settings.h"

namespace {

/// Freed memory stays in the process, so that first touches of pages are not measured as the library's time.
void KeepHeapPagesWarm()
{
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
    mallopt(M_TOP_PAD, 64 << 20);
}

struct Group {
    const char* name;  // for --only
    std::vector<bench::Figure> (*measure)(const bench::Settings& settings);
};

constexpr Group kGroups[] = {
    {"whole-copy", bench::MeasureWholeCopy}, {"used-blocks", bench::MeasureUsedBlockCopy},
    {"restore", bench::MeasureRestores},     {"clone", bench::MeasureClone},
    {"inspect", bench::MeasureInspections},  {"zero-test", bench::MeasureZeroTest},
    {"bitmap", bench::MeasureBitmapScans},   {"primitives", bench::MeasurePrimitives},
    {"checksums", bench::MeasureChecksums},
};

std::vector<std::string> GroupNames()
{
    std::vector<std::string> names;
    std::transform(std::begin(kGroups), std::end(kGroups), std::back_inserter(names),
                   [](const Group& group) { return group.name; });
    return names;
}

/// All groups when none is named.
std::vector<bench::Figure> Measure(const std::vector<std::string>& wanted, const bench::Settings& settings)
{
    std::vector<bench::Figure> figures;
    for (const Group& group : kGroups) {
        if (!wanted.empty() && std::find(wanted.begin(), wanted.end(), group.name) == wanted.end()) {
            continue;
        }
        std::cerr << "Measuring " << group.name << std::endl;
        const std::vector<bench::Figure> more = group.measure(settings);
        figures.insert(figures.end(), more.begin(), more.end());
    }
    return figures;
}

}  // namespace

int main(int argc, char** argv)
{
    bench::Settings settings;
    std::vector<std::string> groups;
    bool json = false;
    CLI::App app("Measures KestrelkitCore.dll against named peers, in pairs of runs.");
    app.add_option("--folder", settings.folder, "Where disk.raw and volume.raw are")->required();
    app.add_option("--dll", settings.dll, "The DLL to measure");
    app.add_option("--only", groups, "Groups of figures")->check(CLI::IsMember(GroupNames()));
    app.add_option("--long-pairs", settings.longPairs, "Pairs of runs that take seconds")->check(CLI::PositiveNumber);
    app.add_option("--short-pairs", settings.shortPairs, "Pairs of short runs")->check(CLI::PositiveNumber);
    app.add_flag("--json", json, "JSON in place of the table");
    CLI11_PARSE(app, argc, argv);

    KeepHeapPagesWarm();
    try {
        const std::vector<bench::Figure> figures = Measure(groups, settings);
        std::cout << (json ? bench::JsonText(figures) : bench::TableText(figures));
    } catch (const std::exception& error) {
        std::cerr << "kk_bench: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
