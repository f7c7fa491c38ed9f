#include "zolbufferutil/internal/zolplanegeometry.h"

#include <cstdint>

#include "zoltoolsdef/internal/zolfatal.h"

namespace zol {

namespace {

// width * num / den as an int row size, false when width * num does not fit in 32 bits. The
// plane functions take int sizes, so the unsigned result is handed over in int's
// representation, as a caller passing it would.
bool RowBytes(uint32_t width, uint32_t num, uint32_t den, int* out) {
    uint32_t product;
    if (__builtin_mul_overflow(width, num, &product)) {
        return false;
    }
    *out = static_cast<int>(product / den);
    return true;
}

}  // namespace

bool TryGetRawFileGeometry(const ZOLImageBuffer& buffer, RawFileAccess access,
                           RawFileGeometry* out) {
    const bool read = access == RawFileAccess::kRead;
    const uint32_t format = buffer.format;
    // Bytes per pixel (as a fraction) of plane 0, and whether there is a half-height plane 1.
    uint32_t num = 0;
    uint32_t den = 1;
    bool twoPlanes = false;
    if (format == 0 || format == 1) {
        num = 1;
        twoPlanes = true;
    } else if (format == 3) {
        num = 12;
        den = 8;
    } else if (format == 4 && !read) {
        num = 14;
        den = 8;
    } else if (format == 5 || (format >= 8 && format <= 14 && !read)) {
        num = 2;
    } else if (format == 6) {
        num = 2;
        twoPlanes = true;
    } else if (format == 7) {
        num = 1;
    }

    RawFileGeometry g;
    if (num != 0) {
        int rowBytes = 0;
        if (!RowBytes(buffer.width, num, den, &rowBytes)) {
            return false;
        }
        g.supported = true;
        g.rowBytes[0] = rowBytes;
        g.rows[0] = static_cast<int>(buffer.height);
        // Plane 1 has half the rows, and only from two rows up.
        if (twoPlanes && buffer.height >= 2) {
            g.rowBytes[1] = rowBytes;
            g.rows[1] = static_cast<int>(buffer.height / 2);
        }
    }
    *out = g;
    return true;
}

RawFileGeometry GetRawFileGeometry(const ZOLImageBuffer& buffer, RawFileAccess access) {
    RawFileGeometry g;
    if (!TryGetRawFileGeometry(buffer, access, &g)) {
        ZOL_FATAL("row size overflows 32 bits");
    }
    return g;
}

}  // namespace zol
