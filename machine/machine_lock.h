#pragma once

#include <mutex>

namespace machine {

class Machine;

/// While one lives, ThreadSanitizer sees nothing of what the thread does, neither its accesses nor its locks. Else each
/// call of one thread would seem to wait for the calls of the others, and the library's races between them would count
/// as ordered. Without that sanitizer it does nothing.
class Unseen {
public:
    Unseen();
    Unseen(const Unseen&) = delete;
    Unseen& operator=(const Unseen&) = delete;
    ~Unseen();
};

/// The machine's one lock, held as long as this lives. What happens under it happens to one thread at a time.
class MachineLock {
public:
    explicit MachineLock(Machine& machine);

private:
    Unseen unseen_;
    std::unique_lock<std::recursive_mutex> lock_;
};

}  // namespace machine
