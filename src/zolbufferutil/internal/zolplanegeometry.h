// Internal: how many rows of how many bytes each plane of a raw image file holds, by format.
// The one place that says it: the dump and read-back code here, anyone (the algorithm
// simulation) that must know what a read-back will touch before it happens, and the host tool
// that checks and names the files all read this table.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zolimagebuffer.h"

namespace zol {

// One format code's raw-file layout. Plane 0 has `height` rows of width * num / den bytes;
// a two-plane format adds a plane 1 of the same row size and height / 2 rows (none below two
// rows). A code with no planes is not handled.
struct RawFormat {
    const char* name;  // short name for people ("NV21", "RAW12"); "unknown" where not handled
    uint32_t num;      // bytes per pixel of a row, as num / den
    uint32_t den;
    int planes;     // 0: not handled, 1 or 2
    bool readBack;  // ZOLReadBuffer takes it too (every handled code can be dumped)
};

// Indexed by format code; codes past the table are not handled.
constexpr RawFormat kRawFormats[] = {
    {"NV21", 1, 1, 2, true},      // 0
    {"NV21", 1, 1, 2, true},      // 1
    {"unknown", 0, 1, 0, false},  // 2
    {"RAW12", 12, 8, 1, true},    // 3
    {"RAW14", 14, 8, 1, false},   // 4
    {"16BIT", 2, 1, 1, true},     // 5
    {"P010", 2, 1, 2, true},      // 6
    {"Y8", 1, 1, 1, true},        // 7
    {"16BIT", 2, 1, 1, false},    // 8
    {"16BIT", 2, 1, 1, false},    // 9
    {"16BIT", 2, 1, 1, false},    // 10
    {"16BIT", 2, 1, 1, false},    // 11
    {"16BIT", 2, 1, 1, false},    // 12
    {"16BIT", 2, 1, 1, false},    // 13
    {"16BIT", 2, 1, 1, false},    // 14
};
constexpr uint32_t kRawFormatCount = sizeof(kRawFormats) / sizeof(kRawFormats[0]);

constexpr RawFormat RawFormatOf(uint32_t format) {
    return format < kRawFormatCount ? kRawFormats[format] : kRawFormats[2];
}

// Rows of plane `plane` (0 or 1) of a handled format at this height.
constexpr uint32_t RawPlaneRows(const RawFormat& f, int plane, uint32_t height) {
    if (plane == 0) {
        return f.planes > 0 ? height : 0;
    }
    return f.planes > 1 && height >= 2 ? height / 2 : 0;
}

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
