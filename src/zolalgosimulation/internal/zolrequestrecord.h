// Internal: one record of requestInfo.bin, the request record file of a save folder, as the
// save writes it, the replay reads it and the host tool inspects it. 40 bytes in the device's
// own byte order, no padding, no header: format, width, height, planeStride, sliceHeight,
// numberOfPlanes, then fd[0..3], four bytes each.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zol {
namespace algosim {

struct RequestRecord {
    uint32_t format = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t planeStride = 0;
    uint32_t sliceHeight = 0;
    uint32_t numberOfPlanes = 0;
    int32_t fd[4] = {0, 0, 0, 0};  // the saving process's descriptors, for inspection only
};

constexpr size_t kRecordFormat = 0;
constexpr size_t kRecordWidth = 4;
constexpr size_t kRecordHeight = 8;
constexpr size_t kRecordPlaneStride = 12;
constexpr size_t kRecordSliceHeight = 16;
constexpr size_t kRecordPlanes = 20;
constexpr size_t kRecordFd = 24;  // fd[i] at kRecordFd + 4 * i
constexpr size_t kRequestRecordBytes = 40;

// A record counts as items: format, width and height as one 12-byte item, then seven 4-byte
// ones. A read counts the items it completed (8 for a whole record), and the replay logs that
// count.
constexpr unsigned kRecordItems = 8;
constexpr unsigned CompleteItems(size_t bytes) {
    return bytes < kRecordPlaneStride ? 0
           : bytes >= kRequestRecordBytes
               ? kRecordItems
               : 1 + static_cast<unsigned>((bytes - kRecordPlaneStride) / 4);
}

inline void EncodeRequestRecord(const RequestRecord& r, uint8_t (&out)[kRequestRecordBytes]) {
    auto store = [&out](size_t offset, uint32_t v) { std::memcpy(out + offset, &v, sizeof(v)); };
    store(kRecordFormat, r.format);
    store(kRecordWidth, r.width);
    store(kRecordHeight, r.height);
    store(kRecordPlaneStride, r.planeStride);
    store(kRecordSliceHeight, r.sliceHeight);
    store(kRecordPlanes, r.numberOfPlanes);
    for (size_t i = 0; i < 4; ++i) {
        store(kRecordFd + 4 * i, static_cast<uint32_t>(r.fd[i]));
    }
}

inline RequestRecord DecodeRequestRecord(const uint8_t* in) {
    auto load = [in](size_t offset) {
        uint32_t v;
        std::memcpy(&v, in + offset, sizeof(v));
        return v;
    };
    RequestRecord r;
    r.format = load(kRecordFormat);
    r.width = load(kRecordWidth);
    r.height = load(kRecordHeight);
    r.planeStride = load(kRecordPlaneStride);
    r.sliceHeight = load(kRecordSliceHeight);
    r.numberOfPlanes = load(kRecordPlanes);
    for (size_t i = 0; i < 4; ++i) {
        r.fd[i] = static_cast<int32_t>(load(kRecordFd + 4 * i));
    }
    return r;
}

}  // namespace algosim
}  // namespace zol
