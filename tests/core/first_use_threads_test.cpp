#include <algorithm>
#include <thread>
#include <vector>

#include "core/file_opener.h"
#include "core/kernel32_api.h"
#include "core/nt.h"
#include "core/shared_flag.h"
#include "support/forked_run.h"
#include "support/hook.h"
#include "support/machine_test.h"

// What several threads see of things that a process makes once. Real races are left to the thread sanitizer; here the
// second thread comes at a moment that is known.

namespace kk {
namespace {

constexpr size_t kEntries = offsetof(Kernel32Api, tried) / sizeof(void*);

class FirstUseThreadsTest : public MachineTest {
protected:
    /// What another thread gets from `ask`.
    template <typename Ask>
    static auto OnAnotherThread(const Ask& ask)
    {
        decltype(ask()) answer = {};
        std::thread([&] { answer = ask(); }).join();
        return answer;
    }
};

TEST_F(FirstUseThreadsTest, AThreadThatComesWhileAnotherBindsIsToldNoAndLooksForNothing)
{
    EXPECT_EQ(RunForked([] {
                  std::vector<bool> answers;
                  const Hook<&LdrLoadDll> load(
                      [&](const char16_t*, const uint32_t*, const UnicodeString*, void** module) {
                          answers.push_back(OnAnotherThread([] { return BindKernel32(); }));
                          *module = &answers;
                          return KK_STATUS_SUCCESS;
                      });
                  const Hook<&LdrGetProcedureAddress> lookUp([&](void*, const AnsiString*, uint32_t, void** address) {
                      answers.push_back(OnAnotherThread([] { return BindKernel32(); }));
                      *address = &answers;
                      return KK_STATUS_SUCCESS;
                  });

                  EXPECT_TRUE(BindKernel32());

                  EXPECT_EQ(answers, std::vector<bool>(1 + kEntries, false));
                  EXPECT_TRUE(OnAnotherThread([] { return BindKernel32(); }));
                  EXPECT_EQ(answers.size(), 1 + kEntries);
                  return 0;
              }),
              0);
}

TEST_F(FirstUseThreadsTest, TheFirstEntryPointIsStoredWhenAllOthersAre)
{
    EXPECT_EQ(RunForked([] {
                  int lookUps = 0;
                  const Hook<&LdrLoadDll> load(
                      [&](const char16_t*, const uint32_t*, const UnicodeString*, void** module) {
                          *module = &lookUps;
                          return KK_STATUS_SUCCESS;
                      });
                  const Hook<&LdrGetProcedureAddress> lookUp([&](void*, const AnsiString*, uint32_t, void** address) {
                      EXPECT_EQ(LoadShared(GetKernel32Api().setVolumeMountPointW), nullptr);
                      ++lookUps;
                      *address = &lookUps;
                      return KK_STATUS_SUCCESS;
                  });

                  EXPECT_TRUE(BindKernel32());

                  EXPECT_NE(GetKernel32Api().setVolumeMountPointW, nullptr);
                  EXPECT_EQ(lookUps, static_cast<int>(kEntries));
                  return 0;
              }),
              0);
}

TEST_F(FirstUseThreadsTest, AllThreadsHaveOneOpener)
{
    FileOpener* const here = GetFileOpener();
    EXPECT_EQ(OnAnotherThread([] { return GetFileOpener(); }), here);
}

TEST_F(FirstUseThreadsTest, OfManyThreadsOneIsTheFirst)
{
    constexpr int kThreads = 8;
    SharedFlag flag;
    std::vector<uint8_t> wasFirst(kThreads);
    std::vector<std::thread> threads;
    for (uint8_t& answer : wasFirst) {
        threads.emplace_back([&answer, &flag] { answer = flag.SetFirst() ? 1 : 0; });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(flag.IsSet());
    EXPECT_EQ(std::count(wasFirst.begin(), wasFirst.end(), 1), 1);
}

TEST_F(FirstUseThreadsTest, WhatWasPublishedOnceStays)
{
    uint64_t place = 0;
    PublishSharedOnce(place, uint64_t{7});
    PublishSharedOnce(place, uint64_t{8});
    EXPECT_EQ(LoadShared(place), 7u);
}

}  // namespace
}  // namespace kk
