#include <windows.h>
/* After the header above, which they need. */
#include <virtdisk.h>
#include <winioctl.h>

#include "facts.h"

#include "service_facts.inc"
