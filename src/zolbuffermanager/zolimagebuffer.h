// The plain records and enumerations that the buffer subsystem and its users share.
//
// ZOLImageBuffer is owned by the caller and copied by value: the library fills and reads it but
// never allocates or frees the record itself, only the memory its plane addresses point to
// (which belongs to the ZOLBufferManager that handed it out, until it is freed).
#pragma once

#include <cstdint>

// The kind of memory behind a buffer. Callers pass other values too; the pool and the manager
// reject them, so the type has a fixed 32-bit representation.
enum ZOLBufferType : int32_t {
    ZOL_BUFFER_TYPE_HEAP = 0,  // malloc / free, no descriptor
    ZOL_BUFFER_TYPE_DMA = 1,   // DMA-buf from the system heap, mapped shared read-write
};

// Direction of a CPU access bracketed by a cache synchronisation (the Linux DMA-buf sync flag
// values). Any other value, 0 included, is treated as read and write.
enum CPUSyncType : int32_t {
    ZOL_CPU_SYNC_READ = 1,
    ZOL_CPU_SYNC_WRITE = 2,
    ZOL_CPU_SYNC_READ_WRITE = 3,
};

// Image format codes understood by the plane sizing rule: two YUV 4:2:0 semi-planar codes (a
// luma plane, then one plane of interleaved chroma pairs at half the rows), sized and copied
// alike. The buffer utilities know a few more codes (see zolbufferutil.h).
enum ZOLImageFormat : uint32_t {
    ZOL_IMAGE_FORMAT_YUV420SP = 0,
    ZOL_IMAGE_FORMAT_YUV420SP_ALT = 1,
};

// An image of up to four planes. Plane i (i < numberOfPlanes) starts at Addr[i]; for DMA
// buffers fd[i] is its descriptor. Every plane advances planeStride bytes per row; the luma
// plane occupies planeStride x sliceHeight bytes. Slots at or past numberOfPlanes are null/0.
struct ZOLImageBuffer {
    uint32_t format;
    uint32_t width;
    uint32_t height;
    uint32_t planeStride;
    uint32_t sliceHeight;
    uint32_t numberOfPlanes;
    void* Addr[4];
    int fd[4];
    void* pNativeHandle;  // graphic buffer wrapping the image, or null
    void* pReserved;      // part of the layout callers use; the library never touches it
};

// What the allocator's graphic and hardware buffer operations take.
struct BufferInfo {
    uint32_t width;   // handed to the graphic buffer
    uint32_t height;  // handed to the graphic buffer
    uint32_t stride;  // handed to the graphic buffer
    uint32_t format;  // carried by callers, not read by the library
    uint64_t usage;   // carried by callers, not read by the library
    uint64_t size;    // bytes of the DMA buffer to allocate, map and later unmap
};
