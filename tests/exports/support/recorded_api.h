#pragma once

#include <cstddef>
#include <set>

#include "machine/kestrelkit_api.h"

/// The same exports, each of which notes what it returns: on any thread, and in processes forked from this one too.
/// What was noted before is forgotten. There is one record in a program; it is of the last table made.
machine::KestrelkitApi RecordedApi(const machine::KestrelkitApi& api);

/// What the export at `index` of `kExports` has returned so far; empty when it was not called.
std::set<KK_STATUS> ReturnedBy(size_t index);
