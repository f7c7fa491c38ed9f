// ZOLAlgoSimulation::readSimulationInfo over an arbitrary folder tree.
//
// Input:
//   byte     flags: bit 0 leaves the base folder out; bits 1-2 are the number of replays - 1
//   byte     number of records in the caller's vector (0..4), then per record four bytes:
//            format (0..8), width (0..63), height (0..31), planeStride (0..127)
//   u16      size of the caller's database block (0..1023)
//   entries until the input ends, each
//     byte   kind: 0 a folder in the base folder (later files go into it), 1 a file in the
//            current folder, 2 a stray file in the base folder, 3 a directory in the current
//            folder where a file is expected
//     byte   name: from 0x80 up a well-known name (requestInfo.bin, database.bin, frame
//            files, ...), else that many bytes of name follow ('/' and NUL become '_')
//     u16    content length (kinds 1 and 2), then the content
// The caller's planes and block are allocated exactly as the caller's own geometry needs (the
// documented read table), so that a replay that writes past them is caught.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "zolalgosimulation.h"

namespace {

const char* const kNames[] = {
    "requestInfo.bin",
    "database.bin",
    "inputFrameInfo_16x8_0_.yuv",
    "inputFrameInfo_16x8_1_.yuv",
    "inputFrameInfo_16x8_2_.yuv",
    "inputFrameInfo_16x8_3_.yuv",
    "SimulationIntputInfo_0303090507042",
    "SimulationIntputInfo_0303090507043",
    "x_0_database",
    "requestInfo_1_",
    ".hidden",
    "%s%n%d",
};

std::string NameFrom(zolfuzz::Reader& in) {
    const uint8_t choice = in.Byte();
    if (choice >= 0x80) {
        return kNames[(choice - 0x80) % (sizeof(kNames) / sizeof(kNames[0]))];
    }
    std::string name = in.Bytes(choice % 40);
    for (char& c : name) {
        if (c == '/' || c == '\0') {
            c = '_';
        }
    }
    if (name.empty() || name == "." || name == "..") {
        name = "n" + name;
    }
    return name;
}

struct Caller {
    std::vector<ZOLImageBuffer> buffers;
    std::vector<std::vector<uint8_t>> planes;  // two per record
    std::vector<uint8_t> database;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zolfuzz::Setup();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string camera = zolfuzz::DevicePath("/data/vendor/camera");
    static const std::string base = camera + "/algosimulation";
    zolfuzz::RemoveTree(camera);
    zolfuzz::MakeDirs(camera);

    zolfuzz::Reader in(data, size);
    const uint8_t flags = in.Byte();
    const bool baseExists = (flags & 1) == 0;
    const int replays = 1 + ((flags >> 1) & 3);

    Caller caller;
    const size_t count = in.Byte() % 5;
    caller.buffers.resize(count);
    caller.planes.resize(count * 2);
    for (size_t i = 0; i < count; ++i) {
        ZOLImageBuffer& b = caller.buffers[i];
        b.format = in.Byte() % 9;
        b.width = in.Byte() % 64;
        b.height = in.Byte() % 32;
        b.planeStride = in.Byte() % 128;
        b.sliceHeight = b.height;
        b.numberOfPlanes = 2;
        const zolfuzz::ReadGeometry g = zolfuzz::DocumentedReadGeometry(b);
        for (int p = 0; p < 2; ++p) {
            caller.planes[i * 2 + p].assign(zolfuzz::PlaneAllocation(g, p), 0x5A);
            b.Addr[p] = caller.planes[i * 2 + p].data();
        }
    }
    caller.database.resize(in.U16() % 1024);

    if (baseExists) {
        zolfuzz::MakeDirs(base);
    }
    std::string current = base;  // files before the first folder are stray files
    while (in.Left() > 0 && baseExists) {
        const uint8_t kind = in.Byte() % 4;
        const std::string name = NameFrom(in);
        // A name already taken by the other kind of entry is simply not created.
        if (kind == 0) {
            if (zolfuzz::TryMakeDirs(base + "/" + name)) {
                current = base + "/" + name;
            }
        } else if (kind == 3) {
            zolfuzz::TryMakeDirs(current + "/" + name);
        } else {
            const std::string content = in.Bytes(in.U16() % 8192);
            const std::string dir = kind == 2 ? base : current;
            zolfuzz::TryWriteFile(dir + "/" + name,
                                  reinterpret_cast<const uint8_t*>(content.data()), content.size());
        }
    }

    // A replay overwrites the records' geometry with the saved one; a caller describes its own
    // buffers again before each invocation, as the planes are still the ones it allocated.
    const std::vector<ZOLImageBuffer> own = caller.buffers;
    ZOLAlgoSimulation simulation;
    for (int r = 0; r < replays; ++r) {
        caller.buffers = own;
        simulation.readSimulationInfo(
            caller.buffers, reinterpret_cast<ZOLDatabaseBaseStruct*>(caller.database.data()),
            static_cast<unsigned>(caller.database.size()));
    }
    return 0;
}
