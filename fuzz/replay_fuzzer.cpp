// ZOLAlgoSimulation::readSimulationInfo over an arbitrary folder tree, with a caller that hands
// its records over differently from one replay to the next.
//
// Input:
//   byte     flags: bit 0 leaves the base folder out; bits 1-2 are the number of replays - 1
//   byte     number of records in the caller's vector (0..4), then per record four bytes:
//            format (0..8), width (0..63), height (0..31), planeStride (0..127)
//   u16      size of the caller's database block (0..1023)
//   per replay after the first, one byte: how the caller hands its records over (below)
//   entries until the input ends, each
//     byte   kind: 0 a folder in the base folder (later entries go into it), 1 a file in the
//            current folder, 2 a stray file in the base folder, 3 a directory in the current
//            folder where a file is expected, 4 a FIFO in the current folder, 5 a symbolic
//            link to itself in the current folder
//     byte   name: from 0x80 up a well-known name (requestInfo.bin, database.bin, frame
//            files, ...), else that many bytes of name follow ('/' and NUL become '_')
//     u16    content length (kinds 1 and 2), then the content
// Handing over, per record: 0 the records as the last replay left them (same planes, the
// geometry the saved folder wrote into them); 1 described again as the planes were made;
// 2 as left, with new planes made for that geometry; 3 as left, with the same planes cut down
// to that geometry (the rest poisoned), as if smaller planes had been made at the same place.
// The caller's planes and block are always exactly what its last description needs (the
// documented read table), so a replay that writes past them is an ASan report.
#include <sanitizer/asan_interface.h>
#include <sys/stat.h>
#include <unistd.h>

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

// The largest plane the harness makes for a geometry a replay left in a record.
constexpr size_t kMaxPlaneBytes = 1 << 20;

struct Caller {
    std::vector<ZOLImageBuffer> buffers;
    std::vector<ZOLImageBuffer> described;     // what each record's planes were made for
    std::vector<std::vector<uint8_t>> planes;  // two per record
    std::vector<uint8_t> database;

    // Makes record i's planes exactly what `b` needs, new ones or the same ones cut down (or
    // let out again); false when they cannot be.
    bool Describe(size_t i, const ZOLImageBuffer& b, bool samePlanes) {
        const zolfuzz::ReadGeometry g = zolfuzz::DocumentedReadGeometry(b);
        size_t need[2];
        for (int p = 0; p < 2; ++p) {
            need[p] = zolfuzz::PlaneAllocation(g, p);
            if (need[p] > (samePlanes ? planes[i * 2 + p].size() : kMaxPlaneBytes)) {
                return false;
            }
        }
        described[i] = b;
        for (int p = 0; p < 2; ++p) {
            std::vector<uint8_t>& plane = planes[i * 2 + p];
            ASAN_UNPOISON_MEMORY_REGION(plane.data(), plane.size());
            if (!samePlanes) {
                plane = std::vector<uint8_t>(need[p], 0x5A);  // a block of exactly that size
            }
            ASAN_POISON_MEMORY_REGION(plane.data() + need[p], plane.size() - need[p]);
            described[i].Addr[p] = plane.data();
        }
        return true;
    }

    // Hands the records over for the next replay (see the top of this file).
    void HandOver(uint8_t how) {
        for (size_t i = 0; how != 0 && i < buffers.size(); ++i) {
            if (how == 2 || how == 3) {
                Describe(i, buffers[i], how == 3);  // else described again as they are
            }
            buffers[i] = described[i];
        }
    }

    ~Caller() {
        for (std::vector<uint8_t>& plane : planes) {
            ASAN_UNPOISON_MEMORY_REGION(plane.data(), plane.size());
        }
    }
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
    caller.described.resize(count);
    caller.planes.resize(count * 2);
    for (size_t i = 0; i < count; ++i) {
        ZOLImageBuffer b = {};
        b.format = in.Byte() % 9;
        b.width = in.Byte() % 64;
        b.height = in.Byte() % 32;
        b.planeStride = in.Byte() % 128;
        b.sliceHeight = b.height;
        b.numberOfPlanes = 2;
        caller.Describe(i, b, false);
        caller.buffers[i] = caller.described[i];
    }
    caller.database.resize(in.U16() % 1024);
    uint8_t handOver[4] = {};
    for (int r = 1; r < replays; ++r) {
        handOver[r] = in.Byte() % 4;
    }

    if (baseExists) {
        zolfuzz::MakeDirs(base);
    }
    std::string current = base;  // files before the first folder are stray files
    while (in.Left() > 0 && baseExists) {
        const uint8_t kind = in.Byte() % 6;
        const std::string name = NameFrom(in);
        // A name already taken by another entry is simply not created.
        if (kind == 0) {
            if (zolfuzz::TryMakeDirs(base + "/" + name)) {
                current = base + "/" + name;
            }
        } else if (kind == 3) {
            zolfuzz::TryMakeDirs(current + "/" + name);
        } else if (kind == 4) {
            mkfifo((current + "/" + name).c_str(), 0600);
        } else if (kind == 5) {
            static_cast<void>(symlink(name.c_str(), (current + "/" + name).c_str()));
        } else {
            const std::string content = in.Bytes(in.U16() % 8192);
            const std::string dir = kind == 2 ? base : current;
            zolfuzz::TryWriteFile(dir + "/" + name,
                                  reinterpret_cast<const uint8_t*>(content.data()), content.size());
        }
    }

    ZOLAlgoSimulation simulation;
    for (int r = 0; r < replays; ++r) {
        caller.HandOver(handOver[r]);
        simulation.readSimulationInfo(
            caller.buffers, reinterpret_cast<ZOLDatabaseBaseStruct*>(caller.database.data()),
            static_cast<unsigned>(caller.database.size()));
    }
    return 0;
}
