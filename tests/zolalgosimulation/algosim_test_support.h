// Frames, databases and files for the simulation tests and the end-to-end helper process.
// Header-only, so that the helper needs nothing but the library.
#pragma once

#include <dirent.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "zolalgosimulation.h"
#include "zolimagebuffer.h"

namespace algosimtest {

constexpr const char* kBaseFolder = "/data/vendor/camera/algosimulation/";
constexpr uint8_t kUntouched = 0xEE;

// The payload byte of an image painted with `seed`.
inline uint8_t PixelValue(uint32_t seed, int plane, uint32_t row, uint32_t col) {
    return static_cast<uint8_t>(seed * 29 + plane * 101 + row * 7 + col * 13 + (row * col) / 5);
}

// An NV21 image with planes of its own (planeStride x sliceHeight and half of it), every byte
// kUntouched until painted. Widths of 8 or more keep the eight bytes a read-back clears inside
// the first row.
struct Frame {
    Frame(uint32_t width, uint32_t height, uint32_t stride, uint32_t sliceHeight) {
        planes[0].assign(size_t{stride} * sliceHeight, kUntouched);
        planes[1].assign(size_t{stride} * sliceHeight / 2, kUntouched);
        buffer = {};
        buffer.format = 0;
        buffer.width = width;
        buffer.height = height;
        buffer.planeStride = stride;
        buffer.sliceHeight = sliceHeight;
        buffer.numberOfPlanes = 2;
        buffer.Addr[0] = planes[0].data();
        buffer.Addr[1] = planes[1].data();
    }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

    uint32_t Rows(int plane) const { return plane == 0 ? buffer.height : buffer.height / 2; }

    void Paint(uint32_t seed) {
        for (int p = 0; p < 2; ++p) {
            for (uint32_t r = 0; r < Rows(p); ++r) {
                for (uint32_t c = 0; c < buffer.width; ++c) {
                    planes[p][r * buffer.planeStride + c] = PixelValue(seed, p, r, c);
                }
            }
        }
    }
    // What a dump of the painted image holds: payload rows, plane 0 then plane 1.
    static std::string Payload(uint32_t width, uint32_t height, uint32_t seed) {
        std::string out;
        for (int p = 0; p < 2; ++p) {
            for (uint32_t r = 0; r < (p == 0 ? height : height / 2); ++r) {
                for (uint32_t c = 0; c < width; ++c) {
                    out.push_back(static_cast<char>(PixelValue(seed, p, r, c)));
                }
            }
        }
        return out;
    }
    // Empty when every payload byte is the painted one and every other byte kUntouched;
    // otherwise where the first difference is.
    std::string Mismatch(uint32_t seed) const {
        for (int p = 0; p < 2; ++p) {
            for (size_t i = 0; i < planes[p].size(); ++i) {
                const uint32_t r = static_cast<uint32_t>(i / buffer.planeStride);
                const uint32_t c = static_cast<uint32_t>(i % buffer.planeStride);
                const bool payload = r < Rows(p) && c < buffer.width;
                const uint8_t want = payload ? PixelValue(seed, p, r, c) : kUntouched;
                if (planes[p][i] != want) {
                    std::ostringstream os;
                    os << "plane " << p << " row " << r << " col " << c << ": " << int{planes[p][i]}
                       << " != " << int{want};
                    return os.str();
                }
            }
        }
        return "";
    }

    std::vector<uint8_t> planes[2];
    ZOLImageBuffer buffer;
};

// A database block that says which invocation it belongs to.
inline std::string DatabaseFor(uint32_t id, size_t size = 96) {
    std::string out(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        out[i] = static_cast<char>(id * 71 + i * 3 + 1);
    }
    return out;
}

inline ZOLDatabaseBaseStruct* AsDatabase(std::string& block) {
    return reinterpret_cast<ZOLDatabaseBaseStruct*>(&block[0]);
}

inline std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

// "SimulationIntputInfo_" and thirteen digits (MMDDhhmmss and milliseconds).
inline bool IsSaveFolderName(const std::string& name) {
    const std::string prefix = "SimulationIntputInfo_";
    if (name.size() != prefix.size() + 13 || name.compare(0, prefix.size(), prefix) != 0) {
        return false;
    }
    for (size_t i = prefix.size(); i < name.size(); ++i) {
        if (name[i] < '0' || name[i] > '9') {
            return false;
        }
    }
    return true;
}

// Visible entries of a directory in directory-stream order, as the replay lists them.
inline std::vector<std::string> StreamOrder(const std::string& path) {
    std::vector<std::string> out;
    if (DIR* dir = opendir(path.c_str())) {
        while (const dirent* e = readdir(dir)) {
            if (e->d_name[0] != '.') {
                out.push_back(e->d_name);
            }
        }
        closedir(dir);
    }
    return out;
}

}  // namespace algosimtest
