#pragma once

#include <string>
#include <vector>

#include "machine/journal.h"

/// What a call did to image files, disks and volumes, a line a step: "open image", "read image", "open drive 0 for
/// writing", "size of volume 1", "write drive 0 at 1048576+8388608", "unlock volume 1", "close drive 0"... Several
/// reads of an image in a row are one step.
std::vector<std::string> RestoreSteps(const machine::Journal& journal);
