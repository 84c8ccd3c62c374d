#include <kestrelkit/kestrelkit.h>
#include <stdio.h>

int main(void)
{
    uint32_t count = UINT32_MAX;
    const KK_STATUS status = KkListDisks(NULL, 0, &count);
    printf("C: status %d, %u disks\n", (int)status, (unsigned)count);
    return status < 0;
}
