#include "core/system_time.h"

#include "core/nt.h"

namespace kk {

int64_t QuerySystemTime()
{
    int64_t time = 0;
    (void)NtQuerySystemTime(&time);
    return time;
}

}  // namespace kk
