// ZOLAlgoSimulation::readRequestBuffer on arbitrary bytes.
//
// Input: one byte for the number of records the caller's vector holds (0..8), then the file.
// Checked besides the sanitizers: the vector is never resized; plane addresses, pNativeHandle
// and pReserved are never touched; every field whose item the file holds completely carries
// the file's bytes (items: format+width+height as one 12-byte item, then seven 4-byte items,
// 40 bytes per record, in vector order); fields the file does not reach keep their values.
// An item the file ends inside is not checked (stdio may fill part of it).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "zolalgosimulation.h"

namespace {

void Fail(const char* what, size_t record) {
    std::fprintf(stderr, "record %zu: %s\n", record, what);
    std::abort();
}

uint32_t At(const std::string& file, size_t offset) {
    uint32_t v;
    std::memcpy(&v, file.data() + offset, sizeof(v));
    return v;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zolfuzz::Setup();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string path = zolfuzz::DevicePath("/requestInfo.bin");
    static ZOLAlgoSimulation* simulation = new ZOLAlgoSimulation();
    zolfuzz::Reader in(data, size);
    const size_t count = in.Byte() % 9;
    const std::string file = in.Bytes(in.Left());
    zolfuzz::WriteFile(path, reinterpret_cast<const uint8_t*>(file.data()), file.size());

    std::vector<ZOLImageBuffer> buffers(count);
    for (size_t i = 0; i < count; ++i) {
        ZOLImageBuffer& b = buffers[i];
        const uint32_t mark = 0x5A000000u + static_cast<uint32_t>(i) * 16;
        b.format = mark;
        b.width = mark + 1;
        b.height = mark + 2;
        b.planeStride = mark + 3;
        b.sliceHeight = mark + 4;
        b.numberOfPlanes = mark + 5;
        for (int p = 0; p < 4; ++p) {
            b.Addr[p] = reinterpret_cast<void*>(0x1000u * (p + 1) + i);
            b.fd[p] = static_cast<int>(mark + 6 + p);
        }
        b.pNativeHandle = reinterpret_cast<void*>(0x7000u + i);
        b.pReserved = reinterpret_cast<void*>(0x8000u + i);
    }
    const std::vector<ZOLImageBuffer> before = buffers;

    char pathArg[256];
    std::snprintf(pathArg, sizeof(pathArg), "%s", path.c_str());
    if (!simulation->readRequestBuffer(buffers, pathArg)) {
        Fail("an existing file could not be read", 0);
    }
    if (buffers.size() != count) {
        Fail("the vector was resized", 0);
    }
    for (size_t i = 0; i < count; ++i) {
        const ZOLImageBuffer& b = buffers[i];
        const ZOLImageBuffer& old = before[i];
        for (int p = 0; p < 4; ++p) {
            if (b.Addr[p] != old.Addr[p]) {
                Fail("a plane address changed", i);
            }
        }
        if (b.pNativeHandle != old.pNativeHandle || b.pReserved != old.pReserved) {
            Fail("pNativeHandle or pReserved changed", i);
        }
        // Field values and the file range of the item that holds each.
        const uint32_t got[10] = {b.format,          b.width,           b.height,
                                  b.planeStride,     b.sliceHeight,     b.numberOfPlanes,
                                  uint32_t(b.fd[0]), uint32_t(b.fd[1]), uint32_t(b.fd[2]),
                                  uint32_t(b.fd[3])};
        const uint32_t was[10] = {old.format,          old.width,           old.height,
                                  old.planeStride,     old.sliceHeight,     old.numberOfPlanes,
                                  uint32_t(old.fd[0]), uint32_t(old.fd[1]), uint32_t(old.fd[2]),
                                  uint32_t(old.fd[3])};
        for (size_t f = 0; f < 10; ++f) {
            const size_t offset = i * 40 + f * 4;
            const size_t itemBegin = f < 3 ? i * 40 : offset;
            const size_t itemEnd = f < 3 ? i * 40 + 12 : offset + 4;
            if (itemEnd <= file.size()) {
                if (got[f] != At(file, offset)) {
                    Fail("a field does not hold the file's bytes", i);
                }
            } else if (itemBegin >= file.size() && got[f] != was[f]) {
                Fail("a field past the end of the file changed", i);
            }
        }
    }
    return 0;
}
