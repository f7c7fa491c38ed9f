#include <BufferAllocator/BufferAllocator.h>

#include <cerrno>
#include <fcntl.h>
#include <linux/dma-buf.h>
#include <linux/dma-heap.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/openfile.h"

namespace {

constexpr const char* kSystemHeap = "/dev/dma_heap/system";

int SyncIoctl(int fd, unsigned long long flags) {
    struct dma_buf_sync sync = {};
    sync.flags = flags;
    int ret;
    do {
        ret = ioctl(fd, DMA_BUF_IOCTL_SYNC, &sync);
    } while (ret < 0 && errno == EINTR);
    return ret < 0 ? -errno : 0;
}

// The memfd path has nothing to synchronise, but a descriptor that is not open is still
// refused as the device's sync ioctl refuses it, so that host tests catch sync misuse.
int CheckOpen(unsigned int fd) {
    return fcntl(static_cast<int>(fd), F_GETFD) < 0 ? -EBADF : 0;
}

}  // namespace

// The header mirrors the platform library's and keeps the heap descriptor as a plain int; an
// owner takes it back for the close.
BufferAllocator::BufferAllocator() : heap_fd_(zol::Open(kSystemHeap, O_RDONLY).release()) {}

BufferAllocator::~BufferAllocator() {
    zol::UniqueFd(heap_fd_).reset();
}

int BufferAllocator::AllocSystem(bool /*cpu_access_needed*/, size_t len, unsigned int heap_flags,
                                 size_t /*legacy_align*/) {
    if (heap_fd_ >= 0) {
        struct dma_heap_allocation_data data = {};
        data.len = len;
        data.fd_flags = O_RDWR | O_CLOEXEC;
        data.heap_flags = heap_flags;
        int ret;
        do {
            ret = ioctl(heap_fd_, DMA_HEAP_IOCTL_ALLOC, &data);
        } while (ret < 0 && errno == EINTR);
        return ret < 0 ? -errno : static_cast<int>(data.fd);
    }
    zol::UniqueFd fd(memfd_create("zoltools-free", MFD_CLOEXEC));
    if (!fd.ok() || ftruncate(fd.get(), static_cast<off_t>(len)) < 0) {
        return -errno;
    }
    return fd.release();
}

int BufferAllocator::CpuSyncStart(unsigned int dmabuf_fd, SyncType sync_type,
                                  const CustomCpuSyncLegacyIon& /*legacy_ion_cpu_sync*/,
                                  void* /*legacy_ion_custom_data*/) {
    if (heap_fd_ < 0) {
        return CheckOpen(dmabuf_fd);  // memfd pages are ordinary cached memory
    }
    return SyncIoctl(static_cast<int>(dmabuf_fd),
                     static_cast<unsigned long long>(DMA_BUF_SYNC_START | sync_type));
}

int BufferAllocator::CpuSyncEnd(unsigned int dmabuf_fd, SyncType sync_type,
                                const CustomCpuSyncLegacyIon& /*legacy_ion_cpu_sync*/,
                                void* /*legacy_ion_custom_data*/) {
    if (heap_fd_ < 0) {
        return CheckOpen(dmabuf_fd);
    }
    return SyncIoctl(static_cast<int>(dmabuf_fd),
                     static_cast<unsigned long long>(DMA_BUF_SYNC_END | sync_type));
}
