// Host stand-in for the DMA-buf heap allocator library's BufferAllocator: the part of its API
// that zoltools uses, with the same results.
//
// When /dev/dma_heap/system opens, buffers come from the kernel's system DMA heap and CPU
// syncs are real DMA_BUF_IOCTL_SYNC calls. Otherwise (the usual development machine) buffers
// are memfd files: a real descriptor whose MAP_SHARED mappings all see the same pages,
// close-on-exec; their sync calls synchronise nothing and return 0, or -EBADF (as the device's
// sync does) for a descriptor that is not open.
//
// Ownership: a descriptor returned by AllocSystem belongs to the caller, who closes it. The
// allocator owns only its handle on the heap device.
#pragma once

#include <cstddef>
#include <functional>

// The values of the Linux DMA-buf sync flags: read 1, write 2, both 3.
enum SyncType {
    kSyncRead = 1,
    kSyncWrite = 2,
    kSyncReadWrite = 3,
};

using CustomCpuSyncLegacyIon = std::function<int(int, int, void*)>;

class BufferAllocator {
public:
    BufferAllocator();
    ~BufferAllocator();
    BufferAllocator(const BufferAllocator&) = delete;
    BufferAllocator& operator=(const BufferAllocator&) = delete;

    // A new buffer of `len` bytes: its descriptor (>= 0), or a negative errno value.
    // `cpu_access_needed`, `heap_flags` and `legacy_align` are accepted for API compatibility.
    int AllocSystem(bool cpu_access_needed, size_t len, unsigned int heap_flags = 0,
                    size_t legacy_align = 0);

    // Bracket CPU access to the buffer behind `dmabuf_fd`: 0 on success, a negative errno value
    // otherwise. The legacy callback is never called (there is no legacy ION heap here).
    int CpuSyncStart(unsigned int dmabuf_fd, SyncType sync_type = kSyncRead,
                     const CustomCpuSyncLegacyIon& legacy_ion_cpu_sync = nullptr,
                     void* legacy_ion_custom_data = nullptr);
    int CpuSyncEnd(unsigned int dmabuf_fd, SyncType sync_type = kSyncRead,
                   const CustomCpuSyncLegacyIon& legacy_ion_cpu_sync = nullptr,
                   void* legacy_ion_custom_data = nullptr);

    // True when buffers come from the kernel DMA heap, false when they are memfd files.
    bool UsesDmaHeap() const { return heap_fd_ >= 0; }

private:
    int heap_fd_ = -1;  // /dev/dma_heap/system, or -1 on the memfd path
};
