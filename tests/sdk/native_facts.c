#include <ntifs.h>
/* After the header above, which it needs. */
#include <mountmgr.h>

#include "facts.h"
#include "native_facts.inc"
