// Copy, dump and read of stride-padded NV21 images, each beside the plain system call a user
// would otherwise make for the same payload bytes. Files go to a fresh directory under
// $TMPDIR (default /tmp), the same file system for both sides.
//
//   copydump_bench [--benchmark_filter=...]
//
// Ratios to compare: BufferCopy / MemcpyPayload (time), BufferDump / WriteOnce,
// ReadBuffer / ReadOnce; bytes_per_second is reported for every case.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/uniquefd.h"
#include "zolbufferutil.h"

namespace {

constexpr uint32_t kPadding = 128;  // bytes of stride padding per row

// An NV21 image with both planes stride-padded, filled with non-zero bytes. Each plane starts
// `offset` bytes into a page-aligned block, so that two images can be placed at chosen page
// offsets from each other (rows of the same page offset 4K-alias between source and
// destination).
struct Nv21 {
    Nv21(uint32_t width, uint32_t height, size_t offset = 0)
        : lumaBlock(Block(size_t{width + kPadding} * height + offset, 0x5A)),
          chromaBlock(Block(size_t{width + kPadding} * height / 2 + offset, 0xA5)) {
        buffer = {};
        buffer.format = 0;
        buffer.width = width;
        buffer.height = height;
        buffer.planeStride = width + kPadding;
        buffer.sliceHeight = height;
        buffer.numberOfPlanes = 2;
        buffer.Addr[0] = lumaBlock.get() + offset;
        buffer.Addr[1] = chromaBlock.get() + offset;
    }
    size_t PayloadBytes() const { return size_t{buffer.width} * buffer.height * 3 / 2; }

    struct Free {
        void operator()(uint8_t* p) const { free(p); }
    };
    using Owned = std::unique_ptr<uint8_t, Free>;
    static Owned Block(size_t bytes, uint8_t fill) {
        Owned block(static_cast<uint8_t*>(aligned_alloc(4096, (bytes + 4095) / 4096 * 4096)));
        memset(block.get(), fill, bytes);
        return block;
    }

    Owned lumaBlock;
    Owned chromaBlock;
    ZOLImageBuffer buffer;
};

// One scratch directory per run, removed at exit.
const std::string& ScratchFile() {
    static const std::string path = [] {
        const char* tmp = getenv("TMPDIR");
        std::string dir = std::string(tmp != nullptr ? tmp : "/tmp") + "/copydump_benchXXXXXX";
        if (mkdtemp(&dir[0]) == nullptr) {
            abort();
        }
        static std::string cleanup;
        cleanup = dir;
        atexit([] {
            unlink((cleanup + "/frame.yuv").c_str());
            rmdir(cleanup.c_str());
        });
        return dir + "/frame.yuv";
    }();
    return path;
}

void SetBytes(benchmark::State& state, size_t bytes) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

// range(2): the destination planes' page offset; the source's is 0.
void BM_BufferCopy(benchmark::State& state) {
    Nv21 src(state.range(0), state.range(1));
    Nv21 dst(state.range(0), state.range(1), state.range(2));
    for (auto _ : state) {
        benchmark::DoNotOptimize(ZOLBufferUtil::ZOLBufferCopy(&dst.buffer, &src.buffer));
        benchmark::ClobberMemory();
    }
    SetBytes(state, src.PayloadBytes());
}

void BM_MemcpyPayload(benchmark::State& state) {
    const size_t bytes = size_t(state.range(0)) * state.range(1) * 3 / 2;
    std::vector<uint8_t> src(bytes, 0x5A);
    std::vector<uint8_t> dst(bytes, 0);
    for (auto _ : state) {
        memcpy(dst.data(), src.data(), bytes);
        benchmark::ClobberMemory();
    }
    SetBytes(state, bytes);
}

void BM_BufferDump(benchmark::State& state) {
    Nv21 image(state.range(0), state.range(1));
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            ZOLBufferUtil::ZOLBufferDump(&image.buffer, ScratchFile().c_str()));
    }
    SetBytes(state, image.PayloadBytes());
}

void BM_WriteOnce(benchmark::State& state) {
    const size_t bytes = size_t(state.range(0)) * state.range(1) * 3 / 2;
    std::vector<uint8_t> data(bytes, 0x5A);
    for (auto _ : state) {
        const zol::UniqueFd fd(open(ScratchFile().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644));
        benchmark::DoNotOptimize(write(fd.get(), data.data(), bytes));
    }
    SetBytes(state, bytes);
}

void BM_ReadBuffer(benchmark::State& state) {
    Nv21 image(state.range(0), state.range(1));
    ZOLBufferUtil::ZOLBufferDump(&image.buffer, ScratchFile().c_str());
    std::string path = ScratchFile();
    for (auto _ : state) {
        benchmark::DoNotOptimize(ZOLBufferUtil::ZOLReadBuffer(&image.buffer, &path[0]));
        benchmark::ClobberMemory();
    }
    SetBytes(state, image.PayloadBytes());
}

void BM_ReadOnce(benchmark::State& state) {
    const size_t bytes = size_t(state.range(0)) * state.range(1) * 3 / 2;
    std::vector<uint8_t> data(bytes, 0x5A);
    {
        const zol::UniqueFd fd(open(ScratchFile().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644));
        benchmark::DoNotOptimize(write(fd.get(), data.data(), bytes));
    }
    for (auto _ : state) {
        const zol::UniqueFd fd(open(ScratchFile().c_str(), O_RDONLY));
        benchmark::DoNotOptimize(read(fd.get(), data.data(), bytes));
        benchmark::ClobberMemory();
    }
    SetBytes(state, bytes);
}

void Sizes(benchmark::internal::Benchmark* b) {
    b->Args({4000, 3000})->Args({1920, 1080})->Unit(benchmark::kMillisecond)->UseRealTime();
}

// Destination at the source's page offset (rows 4K-alias) and 1 KiB further on (they do not).
BENCHMARK(BM_BufferCopy)
    ->ArgsProduct({{4000}, {3000}, {0, 1024}})
    ->ArgsProduct({{1920}, {1080}, {0, 1024}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_MemcpyPayload)->Apply(Sizes);
BENCHMARK(BM_BufferDump)->Apply(Sizes);
BENCHMARK(BM_WriteOnce)->Apply(Sizes);
BENCHMARK(BM_ReadBuffer)->Apply(Sizes);
BENCHMARK(BM_ReadOnce)->Apply(Sizes);

}  // namespace
