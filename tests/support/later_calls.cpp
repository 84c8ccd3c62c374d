#include "support/later_calls.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <new>

#include "support/forked_run.h"

namespace {

constexpr size_t kRoom = 20000;

/// Memory that a process of its own can leave its results in.
class SharedCalls {
public:
    SharedCalls() : list_(mmap(nullptr, sizeof(List), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
    {
        if (list_ == MAP_FAILED) {
            throw std::bad_alloc();
        }
    }
    SharedCalls(const SharedCalls&) = delete;
    SharedCalls& operator=(const SharedCalls&) = delete;
    ~SharedCalls() { munmap(list_, sizeof(List)); }

    void Add(const LaterCall& call)
    {
        List& list = *static_cast<List*>(list_);
        ASSERT_LT(list.count, kRoom);
        list.calls[list.count++] = call;
    }
    std::vector<LaterCall> All() const
    {
        const List& list = *static_cast<const List*>(list_);
        return {list.calls, list.calls + list.count};
    }

private:
    struct List {
        size_t count;
        LaterCall calls[kRoom];
    };

    void* list_;
};

}  // namespace

std::vector<LaterCall> CallsAfter(machine::Machine& machine, uint64_t failing,
                                  const std::function<int32_t()>& operation)
{
    SharedCalls found;
    EXPECT_EQ(RunForked([&] {
                  machine.journal.Clear();
                  machine.faults.FailCall(failing);
                  operation();
                  std::vector<machine::CallRecord> calls = machine.journal.Records();
                  std::ranges::sort(calls, {}, &machine::CallRecord::index);
                  bool isLater = failing == 0;
                  for (const machine::CallRecord& call : calls) {
                      if (isLater && machine::IsFaultable(call.kind)) {
                          found.Add({.place = call.index - calls.front().index + 1,
                                     .failure = machine::NaturalFailure(call.kind)});
                      }
                      isLater = isLater || call.struck;
                  }
                  return 0;
              }),
              0);
    return found.All();
}
