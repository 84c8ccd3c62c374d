#include <kestrelkit/kestrelkit.h>

#include <cstdio>

int main()
{
    uint32_t count = UINT32_MAX;
    const KK_STATUS status = KkListDisks(nullptr, 0, &count);
    std::printf("C++: status %d, %u disks\n", static_cast<int>(status), static_cast<unsigned>(count));
    return status < 0 ? 1 : 0;
}
