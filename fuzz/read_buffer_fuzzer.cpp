// ZOLBufferUtil::ZOLReadBuffer with arbitrary geometry and file contents.
//
// Input: format (0..16), width (0..1023), height (0..63), planeStride (0..2047), a flag byte,
// then the file. The planes are allocated as a caller who knows the documented table would:
// exactly the bytes the rows cover (at least the eight every read clears), so that the
// sanitizer catches any byte written outside. Besides that, both planes must end up exactly as
// the documented read makes them: the first eight bytes cleared, then each row in order taking
// the next rowBytes bytes of the file (a short last row takes what is left), rows the file
// does not reach left as they were; for formats read-back does not support, only the clear.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "zolbufferutil.h"

namespace {

void ApplyDocumentedRead(const zolfuzz::ReadGeometry& g, size_t stride, const std::string& file,
                         std::vector<uint8_t> (&planes)[2], bool plane1Present) {
    for (int p = 0; p < 2; ++p) {
        if (p == 0 || plane1Present) {
            std::memset(planes[p].data(), 0, 8);
        }
    }
    if (!g.supported) {
        return;
    }
    size_t at = 0;
    for (int p = 0; p < 2; ++p) {
        if (g.rowBytes[p] == 0 || (p == 1 && !plane1Present)) {
            continue;
        }
        for (size_t r = 0; r < g.rows[p] && at < file.size(); ++r) {
            const size_t n = std::min(g.rowBytes[p], file.size() - at);
            std::memcpy(planes[p].data() + r * stride, file.data() + at, n);
            at += n;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zolfuzz::Setup();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string path = zolfuzz::DevicePath("/frame.yuv");
    zolfuzz::Reader in(data, size);
    ZOLImageBuffer image = {};
    image.format = in.Byte() % 17;
    image.width = in.U16() % 1024;
    image.height = in.Byte() % 64;
    image.planeStride = in.U16() % 2048;
    image.sliceHeight = image.height;
    const uint8_t flags = in.Byte();
    const std::string file = in.Bytes(in.Left());
    zolfuzz::WriteFile(path, reinterpret_cast<const uint8_t*>(file.data()), file.size());

    const zolfuzz::ReadGeometry g = zolfuzz::DocumentedReadGeometry(image);
    // A one-plane caller may leave Addr[1] null (flag bit 0); a two-plane one may not.
    const bool plane1Present = g.rows[1] > 0 || (flags & 1) == 0;
    std::vector<uint8_t> planes[2];
    std::vector<uint8_t> expected[2];
    const uint8_t fill = static_cast<uint8_t>(flags | 1);  // never the cleared value 0
    for (int p = 0; p < 2; ++p) {
        if (p == 0 || plane1Present) {
            planes[p].assign(zolfuzz::PlaneAllocation(g, p), fill);
            image.Addr[p] = planes[p].data();
        }
        expected[p] = planes[p];
    }
    image.numberOfPlanes = plane1Present ? 2 : 1;

    char pathArg[256];
    std::snprintf(pathArg, sizeof(pathArg), "%s", path.c_str());
    if (!ZOLBufferUtil::ZOLReadBuffer(&image, pathArg)) {
        std::fprintf(stderr, "ZOLReadBuffer could not open an existing file\n");
        std::abort();
    }
    ApplyDocumentedRead(g, image.planeStride, file, expected, plane1Present);
    for (int p = 0; p < 2; ++p) {
        if (planes[p] != expected[p]) {
            std::fprintf(stderr, "plane %d differs from the documented read\n", p);
            std::abort();
        }
    }
    return 0;
}
