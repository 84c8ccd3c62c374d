#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

#include "platform.h"

namespace kkctl {

/// How much there is to do.
struct ProgressPlan {
    uint64_t bytes = 0;         ///< 0: not known
    bool isUpperBound = false;  ///< less will do when free clusters are left out
};

/// "12.0 MiB of at most 64.0 MiB (18 %), 3.1 MiB/s".
std::string ProgressLine(uint64_t writtenBytes, const ProgressPlan& plan, std::chrono::milliseconds elapsed);

/// A line on a terminal that is kept current from a second thread, and wiped out when the object goes.
class Progress {
public:
    Progress(std::ostream& terminal, const ProgressPlan& plan, std::function<uint64_t()> writtenBytes);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();

private:
    void Show();
    void Replace(const std::string& line);

    std::ostream& terminal_;
    ProgressPlan plan_;
    std::function<uint64_t()> writtenBytes_;
    std::chrono::steady_clock::time_point start_;
    size_t shownWidth_ = 0;
    std::unique_ptr<Ticker> ticker_;
};

}  // namespace kkctl
