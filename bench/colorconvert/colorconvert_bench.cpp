// yuv420sp2rgba and rgba2yuv420sp beside libyuv's NV21ToABGR / ABGRToNV21 and beside the plain
// double formulas they reproduce, at 4000 x 3000 and 1920 x 1080, on random and on smooth
// images. Each of our kernel sets is also run on its own (forced through the test hook).
//
//   build/default/bench/colorconvert/colorconvert_bench
//   ... --benchmark_repetitions=5 --benchmark_report_aggregates_only=true  (adds the minimum)
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "colorconvert_reference.h"
#include "libyuv.h"
#include "zolbufferutil.h"
#include "zolbufferutil/internal/zolcolorconvert_rows.h"

namespace {

namespace cc = zol::colorconvert;

// One NV21 image and one RGBA image of the same size; the chroma plane holds the bytes the
// odd-row addressing reads.
struct Images {
    int width, height, pattern;
    std::vector<uint8_t> y, uv, rgba;
};

// pattern 0: random bytes; 1: smooth gradients (what a camera frame looks like locally).
const Images& GetImages(int width, int height, int pattern) {
    static std::vector<Images*> cache;
    for (Images* im : cache) {
        if (im->width == width && im->height == height && im->pattern == pattern) {
            return *im;
        }
    }
    auto* im = new Images{width, height, pattern, {}, {}, {}};  // kept for the whole run
    im->y.resize(static_cast<size_t>(width) * height);
    im->uv.resize(ZOLYuv420spChromaBytes(width, height));
    im->rgba.resize(static_cast<size_t>(width) * height * 4);
    std::mt19937 rng(42);
    for (int r = 0; r < height; ++r) {
        for (int k = 0; k < width; ++k) {
            const size_t i = static_cast<size_t>(r) * width + k;
            if (pattern == 0) {
                im->y[i] = static_cast<uint8_t>(rng());
                for (int c = 0; c < 4; ++c) {
                    im->rgba[4 * i + c] = static_cast<uint8_t>(rng());
                }
            } else {
                im->y[i] = static_cast<uint8_t>((k * 255 / width + r * 255 / height) / 2);
                im->rgba[4 * i] = static_cast<uint8_t>(k * 255 / width);
                im->rgba[4 * i + 1] = static_cast<uint8_t>(r * 255 / height);
                im->rgba[4 * i + 2] = static_cast<uint8_t>((k + r) * 255 / (width + height));
                im->rgba[4 * i + 3] = 255;
            }
        }
    }
    for (size_t i = 0; i < im->uv.size(); ++i) {
        im->uv[i] = pattern == 0 ? static_cast<uint8_t>(rng())
                                 : static_cast<uint8_t>(96 + (i % width) * 64 / width +
                                                        (i / width) * 64 / (height / 2 + 1));
    }
    cache.push_back(im);
    return *im;
}

void Label(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * state.range(0) * state.range(1));
    state.SetLabel(state.range(2) == 0 ? "random" : "smooth");
}

void YuvToRgbaZol(benchmark::State& state) {
    const Images& im = GetImages(state.range(0), state.range(1), state.range(2));
    std::vector<uint8_t> out(im.rgba.size());
    for (auto _ : state) {
        yuv420sp2rgba(const_cast<uint8_t*>(im.y.data()), const_cast<uint8_t*>(im.uv.data()),
                      out.data(), im.width, im.width, im.width, im.height);
        benchmark::ClobberMemory();
    }
    Label(state);
}

void YuvToRgbaLibyuv(benchmark::State& state) {
    const Images& im = GetImages(state.range(0), state.range(1), state.range(2));
    std::vector<uint8_t> out(im.rgba.size());
    for (auto _ : state) {
        libyuv::NV21ToABGR(im.y.data(), im.width, im.uv.data(), im.width, out.data(), im.width * 4,
                           im.width, im.height);
        benchmark::ClobberMemory();
    }
    Label(state);
}

void YuvToRgbaReference(benchmark::State& state) {
    const Images& im = GetImages(state.range(0), state.range(1), state.range(2));
    std::vector<uint8_t> out(im.rgba.size());
    for (auto _ : state) {
        colorconvert_reference::Yuv420spToRgba(im.y.data(), im.uv.data(), out.data(), im.width,
                                               im.width, im.width, im.height);
        benchmark::ClobberMemory();
    }
    Label(state);
}

void RgbaToYuvZol(benchmark::State& state) {
    const Images& im = GetImages(state.range(0), state.range(1), state.range(2));
    std::vector<uint8_t> y(im.y.size()), uv(im.uv.size());
    for (auto _ : state) {
        rgba2yuv420sp(y.data(), uv.data(), const_cast<uint8_t*>(im.rgba.data()), im.width, im.width,
                      im.width, im.height);
        benchmark::ClobberMemory();
    }
    Label(state);
}

void RgbaToYuvLibyuv(benchmark::State& state) {
    const Images& im = GetImages(state.range(0), state.range(1), state.range(2));
    std::vector<uint8_t> y(im.y.size()), uv(im.uv.size());
    for (auto _ : state) {
        libyuv::ABGRToNV21(im.rgba.data(), im.width * 4, y.data(), im.width, uv.data(), im.width,
                           im.width, im.height);
        benchmark::ClobberMemory();
    }
    Label(state);
}

void RgbaToYuvReference(benchmark::State& state) {
    const Images& im = GetImages(state.range(0), state.range(1), state.range(2));
    std::vector<uint8_t> y(im.y.size()), uv(im.uv.size());
    for (auto _ : state) {
        colorconvert_reference::RgbaToYuv420sp(y.data(), uv.data(), im.rgba.data(), im.width,
                                               im.width, im.width, im.height);
        benchmark::ClobberMemory();
    }
    Label(state);
}

// Registered shape by shape, ours next to libyuv's and the reference, so that the three of a
// row run close together in time (the figures are meant to be compared on a busy machine).
int RegisterAll() {
    const int shapes[][3] = {{4000, 3000, 0}, {4000, 3000, 1}, {1920, 1080, 0}, {1920, 1080, 1}};
    const cc::RowKernelList list = cc::SupportedRowKernels();
    struct Direction {
        const char* name;
        void (*zol)(benchmark::State&);
        void (*libyuv)(benchmark::State&);
        void (*reference)(benchmark::State&);
    };
    const Direction directions[] = {
        {"YuvToRgba", YuvToRgbaZol, YuvToRgbaLibyuv, YuvToRgbaReference},
        {"RgbaToYuv", RgbaToYuvZol, RgbaToYuvLibyuv, RgbaToYuvReference},
    };
    for (const Direction& d : directions) {
        for (const auto& shape : shapes) {
            std::vector<benchmark::internal::Benchmark*> row;
            const std::string base = d.name;
            row.push_back(benchmark::RegisterBenchmark((base + "Zol").c_str(), d.zol));
            row.push_back(benchmark::RegisterBenchmark((base + "Libyuv").c_str(), d.libyuv));
            row.push_back(benchmark::RegisterBenchmark((base + "Reference").c_str(), d.reference));
            for (int i = 0; i < list.count; ++i) {
                const auto forced = [zol = d.zol, kernels = list.items[i]](benchmark::State& st) {
                    cc::OverrideRowKernelsForTest(kernels);
                    zol(st);
                    cc::OverrideRowKernelsForTest(nullptr);
                };
                row.push_back(benchmark::RegisterBenchmark(
                    (base + "Zol/" + list.items[i]->name).c_str(), forced));
            }
            for (auto* b : row) {
                b->Args({shape[0], shape[1], shape[2]})->Unit(benchmark::kMillisecond);
                // With --benchmark_repetitions: the fastest repetition, the least disturbed by
                // other load.
                b->ComputeStatistics("min", [](const std::vector<double>& v) {
                    return *std::min_element(v.begin(), v.end());
                });
            }
        }
    }
    return 0;
}
const int g_registered = RegisterAll();

}  // namespace

BENCHMARK_MAIN();
