#include "progress.h"

#include <algorithm>

#include "sizes.h"

namespace kkctl {

namespace {

constexpr std::chrono::milliseconds kRefresh{250};

}  // namespace

std::string ProgressLine(uint64_t writtenBytes, const ProgressPlan& plan, std::chrono::milliseconds elapsed)
{
    std::string line = FormatSize(writtenBytes);
    if (plan.bytes > 0) {
        line += (plan.isUpperBound ? " of at most " : " of ") + FormatSize(plan.bytes);
        // The partition table and the image's own structures can lift the figure a little over the plan.
        const auto part = static_cast<double>(writtenBytes) / static_cast<double>(plan.bytes);
        line += " (" + std::to_string(static_cast<int>(std::min(part, 1.0) * 100)) + " %)";
    }
    if (elapsed.count() > 0) {
        const double perSecond = static_cast<double>(writtenBytes) * 1000.0 / static_cast<double>(elapsed.count());
        line += ", " + FormatSize(static_cast<uint64_t>(perSecond)) + "/s";
    }
    return line;
}

Progress::Progress(std::ostream& terminal, const ProgressPlan& plan, std::function<uint64_t()> writtenBytes)
    : terminal_(terminal), plan_(plan), writtenBytes_(std::move(writtenBytes)), start_(std::chrono::steady_clock::now())
{
    Show();
    ticker_ = std::make_unique<Ticker>(kRefresh, [this] { Show(); });
}

Progress::~Progress()
{
    ticker_.reset();
    Replace("");
}

void Progress::Show()
{
    const auto elapsed = std::chrono::steady_clock::now() - start_;
    Replace(ProgressLine(writtenBytes_(), plan_, std::chrono::duration_cast<std::chrono::milliseconds>(elapsed)));
}

/// Overwrites the old line with blanks, which every console understands, before it writes the new one.
void Progress::Replace(const std::string& line)
{
    terminal_ << '\r' << std::string(shownWidth_, ' ') << '\r' << line << std::flush;
    shownWidth_ = line.size();
}

}  // namespace kkctl
