#include "machine/machine_lock.h"

#include "machine/machine.h"

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define MACHINE_HAS_THREAD_SANITIZER 1
#endif
#elif defined(__SANITIZE_THREAD__)
#define MACHINE_HAS_THREAD_SANITIZER 1
#endif

#if defined(MACHINE_HAS_THREAD_SANITIZER)
extern "C" {
void AnnotateIgnoreReadsBegin(const char* file, int line);
void AnnotateIgnoreReadsEnd(const char* file, int line);
void AnnotateIgnoreWritesBegin(const char* file, int line);
void AnnotateIgnoreWritesEnd(const char* file, int line);
void AnnotateIgnoreSyncBegin(const char* file, int line);
void AnnotateIgnoreSyncEnd(const char* file, int line);
}
#endif

namespace machine {

Unseen::Unseen()
{
#if defined(MACHINE_HAS_THREAD_SANITIZER)
    AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
    AnnotateIgnoreSyncBegin(__FILE__, __LINE__);
#endif
}

Unseen::~Unseen()
{
#if defined(MACHINE_HAS_THREAD_SANITIZER)
    AnnotateIgnoreSyncEnd(__FILE__, __LINE__);
    AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
    AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
#endif
}

MachineLock::MachineLock(Machine& machine) : lock_(machine.Lock()) {}

}  // namespace machine
