// A synthetic camera scene drawn straight into an NV21 image: colour bars over the top two
// thirds, a grey ramp along the bottom third, and a disc that moves a little every frame, so
// that saved frames differ from one another and a replay that read the wrong frame would show.
#pragma once

#include "zolimagebuffer.h"

namespace example {

// Draws frame number `frame` into `image` (format 0, planes at Addr[0] and Addr[1], rows
// planeStride bytes apart). The caller brackets the CPU access.
void DrawScene(const ZOLImageBuffer& image, int frame);

}  // namespace example
