// Shared by the fuzz targets: a private device root that the library's device paths resolve
// into, files written there from fuzz input, quiet logs, and the documented raw-file geometry
// the buffer targets allocate by.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "zolimagebuffer.h"

namespace zolfuzz {

// Called once per process, before the library is first used (LLVMFuzzerInitialize does it):
//  - a fresh device root under /dev/shm (or $TMPDIR, or /tmp) becomes ZOL_DEVICE_ROOT;
//  - the working directory moves to an empty directory, since the directory walk stat()s the
//    names it finds relative to it;
//  - the offline log is switched off (it would write files in every iteration) and Android log
//    lines are formatted as usual but thrown away, so the logging road still runs on hostile
//    text without flooding the fuzzer's output.
void Setup();

// Host path of a device path below the fuzzing root ("/data/x" -> "<root>/data/x").
std::string DevicePath(const std::string& devicePath);

// Writes `size` bytes to `path`, creating or truncating it. Aborts when that fails: the
// harness, not the library, would be broken.
void WriteFile(const std::string& path, const uint8_t* data, size_t size);
// mkdir -p. Aborts on failure, as WriteFile.
void MakeDirs(const std::string& path);
// The same, reporting failure instead of aborting: for trees built from fuzz input, where a
// name may already be taken by a file, a directory, a FIFO or a link (only a file is
// overwritten).
bool TryWriteFile(const std::string& path, const uint8_t* data, size_t size);
bool TryMakeDirs(const std::string& path);
// rm -rf; a missing path is fine.
void RemoveTree(const std::string& path);

// The bytes of each plane that ZOLBufferUtil::ZOLReadBuffer reads into for `buffer`'s format,
// width, height and planeStride, by the table of zolbufferutil.h, computed here independently
// of the library: rows x row bytes per plane, and the span [0, (rows - 1) * stride + rowBytes)
// they cover. Unsupported formats (and plane 1 of one-plane formats) have no rows.
struct ReadGeometry {
    bool supported = false;
    size_t rowBytes[2] = {0, 0};
    size_t rows[2] = {0, 0};
    size_t span[2] = {0, 0};  // 0 when the plane has no rows
};
ReadGeometry DocumentedReadGeometry(const ZOLImageBuffer& buffer);

// What a caller who read the header allocates for a plane: the span, and at least the eight
// bytes every read clears.
inline size_t PlaneAllocation(const ReadGeometry& g, int plane) {
    return g.span[plane] > 8 ? g.span[plane] : 8;
}

// A small cursor over fuzz input: fixed-size fields, then the rest.
class Reader {
public:
    Reader(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
    size_t Left() const { return m_size - m_at; }
    uint8_t Byte() { return m_at < m_size ? m_data[m_at++] : 0; }
    uint16_t U16() {
        const uint16_t low = Byte();
        return static_cast<uint16_t>(low | (Byte() << 8));
    }
    // Up to `n` bytes (fewer at the end of the input).
    std::string Bytes(size_t n) {
        n = n < Left() ? n : Left();
        std::string out(reinterpret_cast<const char*>(m_data + m_at), n);
        m_at += n;
        return out;
    }
    const uint8_t* Here() const { return m_data + m_at; }

private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_at = 0;
};

}  // namespace zolfuzz
