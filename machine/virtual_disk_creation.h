#pragma once

#include "image/virtual_disk_api.h"
#include "machine/switches.h"
#include "machine/virtual_disk_back_end.h"

// What the parameters of a creation may say.

namespace machine {

/// Checks the shape that a new image is to have, and fills in defaults.
bool ReadImageShape(const kk::CreateVirtualDiskParameters& parameters, const Switches& switches, NewImage& image);

/// Whether the parameters leave the whole shape of an overlay to its parent.
bool LeavesShapeToParent(const kk::CreateVirtualDiskParameters& parameters);

}  // namespace machine
