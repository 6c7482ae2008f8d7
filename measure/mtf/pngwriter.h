#pragma once
// The report pictures are written with the program's PNG writer; these names
// keep the callers that still spell them in this namespace building.

#include "imaging/pngwriter.h"

namespace kestro::mtf {
using kestro::encodePng;
using kestro::savePng;
} // namespace kestro::mtf
