// Internal: how many rows of how many bytes each plane of a raw image file holds, by format.
// Shared by the dump and read-back code here and by anyone (the algorithm simulation) that must
// know what a read-back will touch before it happens.
#pragma once

#include "zolimagebuffer.h"

namespace zol {

// Dump and read-back support different format sets; the geometry of a format is the same in
// both directions where both support it.
enum class RawFileAccess { kDump, kRead };

struct RawFileGeometry {
    bool supported = false;  // false: the format is not handled ("unknow format: %d")
    int rowBytes[2] = {0, 0};
    int rows[2] = {0, 0};  // plane 1 has 0 rows where the format has one plane only
};

// The planes `buffer` has in a raw file for `access`. A row size that does not fit in 32 bits
// is fatal.
RawFileGeometry GetRawFileGeometry(const ZOLImageBuffer& buffer, RawFileAccess access);

// The same without the fatal check, for geometry that comes from outside (a file): false when
// a row size does not fit in 32 bits, and `out` is then not set.
bool TryGetRawFileGeometry(const ZOLImageBuffer& buffer, RawFileAccess access,
                           RawFileGeometry* out);

}  // namespace zol
