#include <windows.h>
/* After the header above, which they need; the C form of the interfaces shows the slots by name. */
#include <vsbackup.h>
#include <vss.h>

#include "facts.h"
#include "snapshot_facts.inc"
