#define _WIN32_WINNT 0x0A00
/* Keeps the header from being included by the next one, before the macro below is what it is to be. */
#define _INC_VIRTDISK
#include <windows.h>
#undef _INC_VIRTDISK
/* After the header above, which they need. */
#include <winioctl.h>
#include <winternl.h>

/* Shows a GUID's parts as constants, which the one that it defines is not in C. */
#undef DEFINE_GUID
#define DEFINE_GUID(name, l, w1, w2, b0, b1, b2, b3, b4, b5, b6, b7)                                                   \
    enum {                                                                                                             \
        name##_Data1 = (int)(l),                                                                                       \
        name##_Data2 = (w1),                                                                                           \
        name##_Data3 = (w2),                                                                                           \
        name##_Data4High = (int)((unsigned)(b0) << 24 | (b1) << 16 | (b2) << 8 | (b3)),                                \
        name##_Data4Low = (int)((unsigned)(b4) << 24 | (b5) << 16 | (b6) << 8 | (b7))                                  \
    }
#include <virtdisk.h>

#include "facts.h"

#include "service_facts.inc"
