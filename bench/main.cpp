// Measures the shipped DLL in the simulated machine against named peers. See docs/performance.md.

#include <CLI/CLI.hpp>
#include <iostream>
#include <limits>
#include <malloc.h>

#include "bitmap_figures.h"
#include "copy_figures.h"
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

std::vector<bench::Figure> MeasureGroup(const std::string& group, const bench::Settings& settings)
{
    if (group == "whole-copy") {
        return {bench::MeasureWholeCopy(settings)};
    }
    if (group == "used-blocks") {
        return {bench::MeasureUsedBlockCopy(settings)};
    }
    if (group == "restore") {
        return bench::MeasureRestores(settings);
    }
    if (group == "clone") {
        return {bench::MeasureClone(settings)};
    }
    if (group == "zero-test") {
        return {bench::MeasureZeroTest(settings)};
    }
    return group == "bitmap" ? bench::MeasureBitmapScans(settings) : bench::MeasurePrimitives(settings);
}

}  // namespace

int main(int argc, char** argv)
{
    bench::Settings settings;
    const std::vector<std::string> allGroups = {"whole-copy", "used-blocks", "restore",   "clone",
                                                "zero-test",  "bitmap",      "primitives"};
    std::vector<std::string> groups;
    bool json = false;
    CLI::App app("Measures KestrelkitCore.dll against named peers, in pairs of runs.");
    app.add_option("--folder", settings.folder, "Where disk.raw and volume.raw are")->required();
    app.add_option("--dll", settings.dll, "The DLL to measure");
    app.add_option("--only", groups, "Groups of figures")->check(CLI::IsMember(allGroups));
    app.add_option("--long-pairs", settings.longPairs, "Pairs of runs that take seconds")->check(CLI::PositiveNumber);
    app.add_option("--short-pairs", settings.shortPairs, "Pairs of short runs")->check(CLI::PositiveNumber);
    app.add_flag("--json", json, "JSON in place of the table");
    CLI11_PARSE(app, argc, argv);

    KeepHeapPagesWarm();
    try {
        std::vector<bench::Figure> figures;
        for (const std::string& group : groups.empty() ? allGroups : groups) {
            std::cerr << "Measuring " << group << std::endl;
            const std::vector<bench::Figure> more = MeasureGroup(group, settings);
            figures.insert(figures.end(), more.begin(), more.end());
        }
        std::cout << (json ? bench::JsonText(figures) : bench::TableText(figures));
    } catch (const std::exception& error) {
        std::cerr << "kk_bench: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
