#include "exports/support/shows.h"

#include <gtest/gtest-spi.h>

#include <thread>

#include "exports/support/export_test.h"
#include "support/forked_run.h"

class ShowsTest : public ExportTest {
protected:
    /// Fails with KK_STATUS_INVALID_PARAMETER.
    void Inspect() const { EXPECT_EQ(api.inspectImage(nullptr, nullptr, nullptr, 0, nullptr), kRefused); }
    static constexpr KK_STATUS kRefused = KK_STATUS_INVALID_PARAMETER;
};

TEST_F(ShowsTest, StatusThatCameIsShown)
{
    SHOWS(KkInspectImage, KK_STATUS_INVALID_PARAMETER, "no path is an invalid argument");
    SHOWS(KkInspectImage, 0xC000000D, "the same as a number");
    SHOWS(KkInspectImage, "it is called");

    Inspect();
}

TEST_F(ShowsTest, StatusThatNeverCameFailsTheTest)
{
    EXPECT_NONFATAL_FAILURE(
        {
            SHOWS(KkInspectImage, KK_STATUS_NO_MEMORY, "memory ran out");
            Inspect();
        },
        "the export returned 0xC000000D and not 0xC0000017: memory ran out");
}

TEST_F(ShowsTest, StatusOfAnotherExportFailsTheTest)
{
    EXPECT_NONFATAL_FAILURE(
        {
            SHOWS(KkMountImage, KK_STATUS_INVALID_PARAMETER, "no path");
            Inspect();
        },
        "the export was not called: no path");
}

TEST_F(ShowsTest, ExportThatWasNotCalledFailsTheTest)
{
    EXPECT_NONFATAL_FAILURE(
        { SHOWS(KkReboot, "the machine restarts"); }, "the export was not called: the machine restarts");
}

TEST_F(ShowsTest, CallsOfForkedProcessesAreSeen)
{
    SHOWS(KkInspectImage, KK_STATUS_INVALID_PARAMETER, "no path, in another process");

    EXPECT_EQ(RunForked([&] {
                  Inspect();
                  return 0;
              }),
              0);
}

TEST_F(ShowsTest, CallsOfOtherThreadsAreSeen)
{
    SHOWS(KkInspectImage, KK_STATUS_INVALID_PARAMETER, "no path, on another thread");
    SHOWS(KkCloneVolume, KK_STATUS_INVALID_PARAMETER, "no paths, at the same time");

    std::thread other([&] { Inspect(); });
    EXPECT_EQ(api.cloneVolume(nullptr, nullptr, 0), kRefused);
    other.join();
}

TEST_F(ShowsTest, NewTableForgetsEarlierCalls)
{
    Inspect();
    ASSERT_FALSE(ReturnedBy(IndexOfExport("KkInspectImage")).empty());

    (void)RecordedApi(library->Api());

    EXPECT_TRUE(ReturnedBy(IndexOfExport("KkInspectImage")).empty());
}
