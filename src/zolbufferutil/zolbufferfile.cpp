// Raw image files: dump of an image buffer's planes and read-back into them.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "zolbufferutil.h"
#include "zolbufferutil/zolplanegeometry.h"
#include "zoltoolsdef.h"

namespace {

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};

// A FILE whose stdio buffer lives in this object. Rows still reach the file one fwrite (or
// fread) each, straight from the plane, but the default one-block buffer would turn a 4000-byte
// row into one system call; 64 KiB cuts the calls about sixteen-fold and allocates nothing.
// The buffer is declared before the FILE, so it outlives the fclose that flushes it.
class BufferedFile {
public:
    BufferedFile(const char* path, const char* mode) : file_(fopen(path, mode)) {
        if (file_) {
            setvbuf(file_.get(), buffer_, _IOFBF, sizeof(buffer_));
        }
    }
    FILE* get() const { return file_.get(); }
    explicit operator bool() const { return static_cast<bool>(file_); }

private:
    char buffer_[64 * 1024];
    std::unique_ptr<FILE, FileCloser> file_;
};

// The one message of these operations; callers' tools look for it whatever the log level.
void LogUnknownFormat(uint32_t format) {
    ZOLDebugLogE("unknow format: %d", static_cast<int>(format));
}

}  // namespace

void ZOLBufferUtil::ZOLDumpPlane(FILE* file, unsigned char* src, int rowBytes, int rows,
                                 int stride) {
    // A negative row size would become a huge length, a null plane or file has nothing to
    // give: both are treated as an empty plane rather than a crash.
    if (rows < 1 || rowBytes < 1 || file == nullptr || src == nullptr) {
        return;
    }
    for (int r = 0; r < rows; ++r) {
        fwrite(src + static_cast<ptrdiff_t>(r) * stride, static_cast<size_t>(rowBytes), 1, file);
    }
}

void ZOLBufferUtil::ZOLReadPlane(FILE* file, unsigned char* dst, int rowBytes, int rows,
                                 int stride) {
    // As in ZOLDumpPlane: nothing to do rather than a huge or null read.
    if (rows < 1 || rowBytes < 1 || file == nullptr || dst == nullptr) {
        return;
    }
    for (int r = 0; r < rows; ++r) {
        // Short reads are not checked: rows past the end of the file stay as they were.
        const size_t items =
            fread(dst + static_cast<ptrdiff_t>(r) * stride, static_cast<size_t>(rowBytes), 1, file);
        static_cast<void>(items);
    }
}

bool ZOLBufferUtil::ZOLBufferDump(ZOLImageBuffer* buffer, const char* path) {
    // No buffer or no path: the "cannot open" result, before any file is created.
    if (buffer == nullptr || path == nullptr) {
        return false;
    }
    BufferedFile file(path, "wb+");
    if (!file) {
        return false;
    }
    const zol::RawFileGeometry g = zol::GetRawFileGeometry(*buffer, zol::RawFileAccess::kDump);
    if (!g.supported) {
        LogUnknownFormat(buffer->format);
        return true;
    }
    const int stride = static_cast<int>(buffer->planeStride);
    for (int plane = 0; plane < 2; ++plane) {
        ZOLDumpPlane(file.get(), static_cast<unsigned char*>(buffer->Addr[plane]),
                     g.rowBytes[plane], g.rows[plane], stride);
    }
    return true;
}

bool ZOLBufferUtil::ZOLReadBuffer(ZOLImageBuffer* buffer, char* path) {
    // No buffer or no path: the "cannot open" result.
    if (buffer == nullptr || path == nullptr) {
        return false;
    }
    BufferedFile file(path, "rb");
    if (!file) {
        return false;
    }
    // The first eight bytes of both planes are cleared whatever the format; the planes need not
    // be 8-byte aligned, hence memcpy. A null plane (a one-plane buffer's Addr[1]) is skipped
    // rather than written through.
    const uint64_t zero = 0;
    for (void* plane : {buffer->Addr[0], buffer->Addr[1]}) {
        if (plane != nullptr) {
            memcpy(plane, &zero, sizeof(zero));
        }
    }
    const zol::RawFileGeometry g = zol::GetRawFileGeometry(*buffer, zol::RawFileAccess::kRead);
    if (!g.supported) {
        LogUnknownFormat(buffer->format);
        return true;
    }
    const int stride = static_cast<int>(buffer->planeStride);
    for (int plane = 0; plane < 2; ++plane) {
        ZOLReadPlane(file.get(), static_cast<unsigned char*>(buffer->Addr[plane]),
                     g.rowBytes[plane], g.rows[plane], stride);
    }
    return true;
}
