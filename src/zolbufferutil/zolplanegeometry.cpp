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
    const RawFormat f = RawFormatOf(buffer.format);
    RawFileGeometry g;
    if (f.planes > 0 && (f.readBack || access == RawFileAccess::kDump)) {
        int rowBytes = 0;
        if (!RowBytes(buffer.width, f.num, f.den, &rowBytes)) {
            return false;
        }
        g.supported = true;
        for (int plane = 0; plane < 2; ++plane) {
            const uint32_t rows = RawPlaneRows(f, plane, buffer.height);
            g.rowBytes[plane] = plane == 0 || rows > 0 ? rowBytes : 0;
            g.rows[plane] = static_cast<int>(rows);
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
