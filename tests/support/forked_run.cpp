#include "support/forked_run.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

namespace {

/// Failures of the running test so far. The child inherits those of its parent, which are not its own.
int FailureCount()
{
    const testing::TestResult& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
    int count = 0;
    for (int i = 0; i < result.total_part_count(); ++i) {
        count += result.GetTestPartResult(i).failed() ? 1 : 0;
    }
    return count;
}

}  // namespace

int RunForked(const std::function<int()>& body)
{
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const int before = FailureCount();
        const int answer = body();
        std::fflush(nullptr);
        _exit(FailureCount() > before ? 1 : answer);
    }
    int status = 0;
    const bool ended = child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status);
    return ended ? WEXITSTATUS(status) : -1;
}
