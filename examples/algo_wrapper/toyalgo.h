// The algorithm the example wraps: a global tone curve. It converts the NV21 input to RGBA with
// the library's yuv420sp2rgba, maps each colour channel through a curve (gamma, then an S-curve
// for contrast), and converts back to NV21 with rgba2yuv420sp. Deterministic: the same input
// and database give the same output bytes, which is what a replay checks.
#pragma once

#include <cstdint>

#include "zolimagebuffer.h"

namespace example {

// The algorithm's database (parameter) block. The simulation facility saves and replays it as
// raw bytes, so it is plain data; the tag and the frame index let a replay recognise what it
// was given.
struct ToyAlgoDatabase {
    char tag[8];          // "TOYALGO"
    uint32_t frameIndex;  // which invocation of the saving run
    uint32_t width;
    uint32_t height;
    float gamma;     // < 1 brightens the shadows
    float contrast;  // 0 leaves the curve alone, 1 is a strong S
    uint32_t reserved[9];
};
static_assert(sizeof(ToyAlgoDatabase) == 64, "the saved block keeps its size");

// Fills in the database of invocation `frame` of a run at this size.
ToyAlgoDatabase MakeDatabase(uint32_t frame, uint32_t width, uint32_t height);
bool IsToyAlgoDatabase(const ToyAlgoDatabase& db);

// Runs the curve from `in` to `out` (same size, format 0). `rgba` is scratch of width * height
// * 4 bytes. The planes' chroma must hold what the conversion reads (see zolbufferutil.h).
void RunToneCurve(const ToyAlgoDatabase& db, const ZOLImageBuffer& in, const ZOLImageBuffer& out,
                  uint8_t* rgba);

}  // namespace example
