#include "platform.h"

#include <atomic>
#include <iostream>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

namespace kkctl {

TEST(TickerTest, TicksOnAThreadOfItsOwnUntilItGoes)
{
    std::atomic<int> count = 0;
    std::atomic<bool> sameThread = false;
    {
        const auto here = std::this_thread::get_id();
        const Ticker ticker(std::chrono::milliseconds(1), [&] {
            sameThread = sameThread || std::this_thread::get_id() == here;
            ++count;
        });
        while (count < 3) {
            std::this_thread::yield();
        }
    }
    const int countAtEnd = count;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));

    EXPECT_EQ(count, countAtEnd);
    EXPECT_FALSE(sameThread);
}

TEST(TickerTest, EndsAtOnceHoweverLongItsPeriod)
{
    const auto start = std::chrono::steady_clock::now();
    {
        const Ticker ticker(std::chrono::hours(1), [] {});
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::minutes(1));
}

TEST(InputTest, LinesComeWithoutTheirEnds)
{
    std::istringstream lines("first\n\nlast");
    std::streambuf* const before = std::cin.rdbuf(lines.rdbuf());

    EXPECT_EQ(ReadInputLine(), "first");
    EXPECT_EQ(ReadInputLine(), "");
    EXPECT_EQ(ReadInputLine(), "last");
    EXPECT_EQ(ReadInputLine(), std::nullopt);
    std::cin.rdbuf(before);
}

TEST(ArgumentsTest, TheProgramsNameIsLeftOut)
{
    char program[] = "kkctl";
    char command[] = "disks";
    char* argv[] = {program, command, nullptr};

    EXPECT_EQ(ProgramArguments(2, argv), std::vector<std::string>{"disks"});
    EXPECT_TRUE(ProgramArguments(0, argv).empty());
}

}  // namespace kkctl
