#pragma once

#include <functional>

/// Runs `body`, which may use test assertions, in a process of its own, so that what the library keeps for the life of
/// a process is fresh and what the body changes is gone afterwards. Answers what the body does, 1 when an assertion
/// failed (its text is printed), or -1 when the process died.
int RunForked(const std::function<int()>& body);
