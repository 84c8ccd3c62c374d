#include "kestrelkit/kestrelkit.h"

static_assert(sizeof(KkPartitionInfo) == 373);
