#pragma once

#include <cstdint>
#include <functional>

#include "machine/machine.h"

/// With two calls the second is any later one of those that are then still made. The pairs are a sample, the same in
/// each run: calls from everywhere, each with the next call, one soon after, and one anywhere behind it. With
/// KK_ALL_PAIRS=1 in the environment they are all pairs.
enum class FaultMode { OneCall, ThatCallAndAllLater, TwoCalls };

/// Fails the 1st, then the 2nd, ... call that the machine receives from an operation, until a run gets by without
/// meeting its fault. Each run starts from the machine as it is now, in a process of its own. After each run nothing
/// may be left open or allocated; `check` is given the call that failed last (null in the last run, which pairs do not
/// have) and the operation's status. Returns how many calls, or pairs of the sample, can fail.
uint64_t SweepFailingCalls(machine::Machine& machine, FaultMode mode, const std::function<int32_t()>& operation,
                           const std::function<void(const machine::CallRecord* failed, int32_t status)>& check);

/// Whether a call asks a disk for its size.
bool AsksForSize(const machine::CallRecord& call);

/// How many calls that fit came before `failed`.
uint64_t CallsBefore(const machine::Journal& journal, const machine::CallRecord& failed,
                     const machine::CallPattern& pattern);

/// The status of the first failed call that owes one; 0 when none does. That a disk did not tell its size is noticed
/// later than every other failure.
int32_t FirstDebt(const machine::Journal& journal, const std::function<int32_t(const machine::CallRecord&)>& owed);
