#include "exports/support/shows.h"

#include <gtest/gtest.h>

#include <sstream>

#include "exports/support/recorded_api.h"

namespace {

std::string Text(const std::set<KK_STATUS>& statuses)
{
    std::ostringstream text;
    text << std::hex << std::uppercase;
    for (const KK_STATUS status : statuses) {
        text << " 0x" << static_cast<uint32_t>(status);
    }
    return std::move(text).str();
}

}  // namespace

Shown::~Shown()
{
    if (testing::Test::IsSkipped() || testing::Test::HasFatalFailure()) {
        return;
    }
    const std::set<KK_STATUS> statuses = ReturnedBy(index_);
    if (statuses.empty()) {
        ADD_FAILURE() << "the export was not called: " << behaviour_;
    } else if (hasStatus_ && !statuses.contains(status_)) {
        ADD_FAILURE() << "the export returned" << Text(statuses) << " and not" << Text({status_}) << ": " << behaviour_;
    }
}
