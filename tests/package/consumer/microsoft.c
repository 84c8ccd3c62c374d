#include <kestrelkit/kestrelkit.h>

/* Compiled in Microsoft's dialect and linked without its run-time, so the result is all that it can tell. */
int Start(void);
int Start(void)
{
    uint32_t count = UINT32_MAX;
    const KK_STATUS status = KkListDisks(NULL, 0, &count);
    return status == KK_STATUS_SUCCESS && count == 0 ? 100 : 101;
}
