// What a block costs a capture thread: taken from the pool (GetBufferFromPool, first write,
// PutBufferToPool; a manager's image AllocBuffer + FreeBuffer) beside what a user would do
// without it: a fresh DMA buffer (memfd on a machine without a DMA heap) allocated, mapped,
// written and released, or malloc + write + free. "First write" touches one byte per page, which
// is where a fresh buffer pays its page faults. Sizes: 4 KiB, 1 MiB and a 4000x3000 NV21 frame.
//
// The log level is 0 for the run: this measures the buffers, not the log.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "zolbuffermanager.h"
#include "zoltoolsdef.h"

namespace {

constexpr unsigned kPage = 4096;
constexpr unsigned kNv21Width = 4000;
constexpr unsigned kNv21Height = 3000;
constexpr unsigned kNv21Bytes = kNv21Width * kNv21Height * 3 / 2;

// The pool client and manager every benchmark shares; they live for the whole run, so the pool
// is never emptied between benchmarks.
ZOLBufferPool* g_pool = nullptr;
ZOLBufferManager* g_manager = nullptr;

void TouchPages(void* p, size_t size) {
    auto* bytes = static_cast<volatile unsigned char*>(p);
    for (size_t offset = 0; offset < size; offset += kPage) {
        bytes[offset] = static_cast<unsigned char>(offset);
    }
    bytes[size - 1] = 1;
}

// An image of about `bytes` in total: luma planeStride x sliceHeight plus chroma half of that.
ZOLImageBuffer ImageOf(unsigned bytes) {
    ZOLImageBuffer image = {};
    image.format = ZOL_IMAGE_FORMAT_YUV420SP;
    if (bytes == kNv21Bytes) {
        image.planeStride = kNv21Width;
        image.sliceHeight = kNv21Height;
    } else {
        image.planeStride = bytes >= (1u << 20) ? 1024 : 64;
        image.sliceHeight = (bytes * 2 / 3 + image.planeStride - 1) / image.planeStride;
    }
    image.width = image.planeStride;
    image.height = image.sliceHeight;
    return image;
}

// Steady state: before timing, two blocks of the size are made and put back, so that each of up
// to two threads finds a free one.
void PoolGetWritePut(benchmark::State& state, ZOLBufferType type) {
    const unsigned size = static_cast<unsigned>(state.range(0));
    int warmFd = 0;
    void* warm[2] = {g_pool->GetBufferFromPool(size, warmFd, type),
                     g_pool->GetBufferFromPool(size, warmFd, type)};
    for (void* p : warm) {
        TouchPages(p, size);
        g_pool->PutBufferToPool(p);
    }
    for (auto _ : state) {
        int fd = 0;
        void* p = g_pool->GetBufferFromPool(size, fd, type);
        TouchPages(p, size);
        g_pool->PutBufferToPool(p);
    }
}

void ManagerImage(benchmark::State& state, ZOLBufferType type) {
    const ZOLImageBuffer shape = ImageOf(static_cast<unsigned>(state.range(0)));
    const size_t luma = static_cast<size_t>(shape.planeStride) * shape.sliceHeight;
    ZOLImageBuffer warm[2] = {shape, shape};
    for (ZOLImageBuffer& image : warm) {
        g_manager->AllocBuffer(image, type);
    }
    for (ZOLImageBuffer& image : warm) {
        g_manager->FreeBuffer(image);
    }
    for (auto _ : state) {
        ZOLImageBuffer image = shape;
        if (!g_manager->AllocBuffer(image, type)) {
            state.SkipWithError("image allocation failed");
            break;
        }
        TouchPages(image.Addr[0], luma);
        TouchPages(image.Addr[1], luma / 2);
        g_manager->FreeBuffer(image);
    }
}

void FreshDmaBuffer(benchmark::State& state) {
    const unsigned long size = static_cast<unsigned long>(state.range(0));
    ZOLBufferAllocator allocator;
    for (auto _ : state) {
        char* p = nullptr;
        int fd = -1;
        if (allocator.AllocDMABuffer(size, &p, fd) != 0) {
            state.SkipWithError("DMA allocation failed");
            break;
        }
        TouchPages(p, size);
        allocator.DeallocDMABuffer(size, p, fd);
    }
}

void MallocWriteFree(benchmark::State& state) {
    const size_t size = static_cast<size_t>(state.range(0));
    for (auto _ : state) {
        void* p = std::malloc(size);
        TouchPages(p, size);
        benchmark::DoNotOptimize(p);
        std::free(p);
    }
}

void Sizes(benchmark::internal::Benchmark* b) {
    b->Arg(4096)->Arg(1 << 20)->Arg(kNv21Bytes)->Threads(1)->Threads(2)->UseRealTime();
}

BENCHMARK_CAPTURE(PoolGetWritePut, dma, ZOL_BUFFER_TYPE_DMA)->Apply(Sizes);
BENCHMARK_CAPTURE(ManagerImage, dma, ZOL_BUFFER_TYPE_DMA)->Apply(Sizes);
BENCHMARK(FreshDmaBuffer)->Apply(Sizes);
BENCHMARK_CAPTURE(PoolGetWritePut, heap, ZOL_BUFFER_TYPE_HEAP)->Apply(Sizes);
BENCHMARK_CAPTURE(ManagerImage, heap, ZOL_BUFFER_TYPE_HEAP)->Apply(Sizes);
BENCHMARK(MallocWriteFree)->Apply(Sizes);

}  // namespace

int main(int argc, char** argv) {
    ZOLToolsLogLevel = 0;
    ZOLBufferPool pool;
    ZOLBufferManager manager("bench");
    g_pool = &pool;
    g_manager = &manager;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
