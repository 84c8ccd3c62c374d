#include "kestrelkit/kestrelkit.h"

/* The header must stand alone in C11; a translation unit must declare something of its own. */
typedef KK_STATUS(KK_CALL* KkListDisksFunction)(KkDiskInfo*, uint32_t, uint32_t*);
KkListDisksFunction kkHeaderAloneInC = 0;
