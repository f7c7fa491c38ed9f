#include <cutils/native_handle.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

#include "platform/uniquefd.h"
#include "zolbuffermanager.h"
#include "zoltoolsdef.h"

namespace {

// What a wrapped graphic buffer is made with: the implementation-defined pixel format, no
// layers, and the gralloc camera-write usage bit.
constexpr int kGraphicBufferFormat = 34;  // HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED
constexpr uint32_t kGraphicBufferLayerCount = 0;
constexpr uint64_t kGraphicBufferUsage = 0x20000;  // GRALLOC_USAGE_HW_CAMERA_WRITE

// A graphic buffer around a handle that describes the descriptor: version 0, no descriptors and
// no integers declared, the descriptor in the first data slot. The handle lives on this stack
// frame; the graphic buffer reads it while being constructed.
android::sp<android::GraphicBuffer> WrapDescriptor(unsigned width, unsigned height, unsigned stride,
                                                   int fd) {
    NATIVE_HANDLE_DECLARE_STORAGE(storage, 1, 0);
    native_handle_t header = {};
    header.version = 0;
    header.numFds = 0;
    header.numInts = 0;
    std::memcpy(storage, &header, sizeof(header));
    // The data slots follow the header; the declared array has no elements, so write bytewise.
    std::memcpy(storage + sizeof(native_handle_t), &fd, sizeof(fd));
    return android::sp<android::GraphicBuffer>(new android::GraphicBuffer(
        reinterpret_cast<const native_handle_t*>(storage), android::GraphicBuffer::WRAP_HANDLE,
        width, height, kGraphicBufferFormat, kGraphicBufferLayerCount, kGraphicBufferUsage,
        stride));
}

SyncType ToSyncType(CPUSyncType type) {
    switch (type) {
        case ZOL_CPU_SYNC_READ:
            return kSyncRead;
        case ZOL_CPU_SYNC_WRITE:
            return kSyncWrite;
        default:
            return kSyncReadWrite;
    }
}

}  // namespace

ZOLBufferAllocator::ZOLBufferAllocator() : m_bufferAllocator(std::make_unique<BufferAllocator>()) {}

ZOLBufferAllocator::~ZOLBufferAllocator() = default;

int ZOLBufferAllocator::AllocDMABuffer(unsigned long size, char** ppBuffer, int& fd) {
    if (m_bufferAllocator == nullptr) {
        ZOL_LOGE("Alloc DMA Buffer fail, bufferAllocator is nullptr");
        return -1;
    }
    if (ppBuffer == nullptr) {
        // The mapping would have nowhere to go: allocate nothing rather than write through null.
        ZOL_LOGE("Mmap DMA Buffer fail, pBuffer is nullptr");
        return -1;
    }
    fd = m_bufferAllocator->AllocSystem(true, size, 0, 0);
    if (fd < 0) {
        ZOL_LOGE("Alloc System fail, m_fileDescriptor is invalid");
        return -1;
    }
    zol::UniqueFd owner(fd);  // the allocator's until the mapping succeeded
    void* mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    // MAP_FAILED (address space or map count exhausted) is a failed mapping like null: an
    // address of -1 handed out would crash the first write to it.
    *ppBuffer = mapped == MAP_FAILED ? nullptr : static_cast<char*>(mapped);
    if (*ppBuffer == nullptr) {
        ZOL_LOGE("Mmap DMA Buffer fail, pBuffer is nullptr");
        return -1;  // owner closes the descriptor; the caller's fd keeps its number
    }
    static_cast<void>(owner.release());  // the caller's now, through `fd`
    return 0;
}

int ZOLBufferAllocator::DeallocDMABuffer(unsigned long size, char* pBuffer, int& fd) {
    if (pBuffer != nullptr) {
        munmap(pBuffer, size);
    }
    if (fd < 0) {
        return fd;
    }
    zol::UniqueFd owner(fd);
    fd = -1;
    return owner.close();
}

android::sp<android::GraphicBuffer> ZOLBufferAllocator::AllocGraphicBuffer(BufferInfo info,
                                                                           char** ppBuffer,
                                                                           int& fd) {
    if (ppBuffer == nullptr) {
        // Checked before allocating: the DMA buffer's address could not be handed back.
        ZOL_LOGE("Alloc Graphic Buffer fail, pBuffer is nullptr");
        return nullptr;
    }
    // A failed allocation still yields a graphic buffer (around the negative or closed fd).
    AllocDMABuffer(info.size, ppBuffer, fd);
    return WrapDescriptor(info.width, info.height, info.stride, fd);
}

int ZOLBufferAllocator::DeallocGraphicBuffer(BufferInfo info, char* pBuffer, int& fd) {
    return DeallocDMABuffer(info.size, pBuffer, fd);
}

AHardwareBuffer* ZOLBufferAllocator::AllocHardwareBuffer(BufferInfo info, char** ppBuffer,
                                                         int& fd) {
    android::sp<android::GraphicBuffer> graphicBuffer = AllocGraphicBuffer(info, ppBuffer, fd);
    if (graphicBuffer == nullptr) {
        return nullptr;  // nothing to convert
    }
    AHardwareBuffer* hardwareBuffer = graphicBuffer->toAHardwareBuffer();
    graphicBuffer.clear();
    return hardwareBuffer;
}

int ZOLBufferAllocator::DeallocHardwareBuffer(BufferInfo info, char* pBuffer, int& fd) {
    return DeallocDMABuffer(info.size, pBuffer, fd);
}

int ZOLBufferAllocator::StartCPUSync(int fd, CPUSyncType type) {
    return m_bufferAllocator->CpuSyncStart(static_cast<unsigned>(fd), ToSyncType(type),
                                           CustomCpuSyncLegacyIon(), nullptr);
}

int ZOLBufferAllocator::EndCPUSync(int fd) {
    return m_bufferAllocator->CpuSyncEnd(static_cast<unsigned>(fd), kSyncRead,
                                         CustomCpuSyncLegacyIon(), nullptr);
}

void* ZOLBufferAllocator::MapFDToBufferPointer(int fd, unsigned long size) {
    // Only descriptor 0 is refused; a negative one goes to mmap, whose failure comes back as is.
    if (fd == 0) {
        ZOL_LOGE("Map FD to Bufer Pointer fail, fd is invalid");
        return nullptr;
    }
    return mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
}

android::sp<android::GraphicBuffer> DMABufferToGraphicBuffer(unsigned width, unsigned height,
                                                             unsigned stride, int fd) {
    return WrapDescriptor(width, height, stride, fd);
}
