#!/usr/bin/env python3
"""Prints the table of our cases beside their baselines, as Markdown, from Google Benchmark JSON.

Each benchmark program runs every case beside its baseline in the same run, with random
interleaving and repetitions, and writes its JSON:

  build/default/bench/copydump/copydump_bench --benchmark_repetitions=5 \\
      --benchmark_enable_random_interleaving=true --benchmark_out=copydump.json
  build/default/bench/colorconvert/colorconvert_bench --benchmark_filter='(Zol|Libyuv)/[0-9]' \\
      --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true \\
      --benchmark_out=colorconvert.json
  build/default/bench/logging/logging_bench --benchmark_filter='Latency|Paced|Throughput' \\
      --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true \\
      --benchmark_out=logging.json
  bench/ratios.py [--wall] copydump.json colorconvert.json logging.json

Figures are the medians of the repetitions: CPU time by default (the machine may be shared),
wall time with --wall. The ratio is always "how many times better than the baseline" (above 1
is ahead); the goal is a ratio.
"""
import json
import sys

# (what, our case, baseline, what the baseline is, measure, goal). Measures: "time" (lower is
# better), a counter name such as "p99_ns" (lower is better), "items_per_second" (higher).
ROWS = [
    ("`ZOLReadBuffer` 4000x3000 NV21", "BM_ReadBuffer/4000/3000/real_time",
     "BM_ReadOnce/4000/3000/real_time", "one `read()`", "time", 0.9),
    ("`ZOLReadBuffer` 1920x1080", "BM_ReadBuffer/1920/1080/real_time",
     "BM_ReadOnce/1920/1080/real_time", "one `read()`", "time", 0.9),
    ("`ZOLBufferDump` 4000x3000", "BM_BufferDump/4000/3000/real_time",
     "BM_WriteOnce/4000/3000/real_time", "one `write()`", "time", 0.95),
    ("`ZOLBufferDump` 1920x1080", "BM_BufferDump/1920/1080/real_time",
     "BM_WriteOnce/1920/1080/real_time", "one `write()`", "time", 0.95),
    ("`ZOLBufferCopy` 4000x3000, rows 4K-aliased", "BM_BufferCopy/4000/3000/0/real_time",
     "BM_MemcpyPayload/4000/3000/real_time", "one `memcpy`", "time", 0.95),
    ("`ZOLBufferCopy` 4000x3000, not aliased", "BM_BufferCopy/4000/3000/1024/real_time",
     "BM_MemcpyPayload/4000/3000/real_time", "one `memcpy`", "time", 0.95),
    ("`ZOLBufferCopy` 1920x1080, rows 4K-aliased", "BM_BufferCopy/1920/1080/0/real_time",
     "BM_MemcpyPayload/1920/1080/real_time", "one `memcpy`", "time", 0.9),
    ("`ZOLBufferCopy` 1920x1080, not aliased", "BM_BufferCopy/1920/1080/1024/real_time",
     "BM_MemcpyPayload/1920/1080/real_time", "one `memcpy`", "time", 0.9),
    ("`rgba2yuv420sp` 1920x1080", "RgbaToYuvZol/1920/1080/0", "RgbaToYuvLibyuv/1920/1080/0",
     "libyuv `ABGRToNV21`", "time", 1.0),
    ("`rgba2yuv420sp` 4000x3000", "RgbaToYuvZol/4000/3000/0", "RgbaToYuvLibyuv/4000/3000/0",
     "libyuv `ABGRToNV21`", "time", 1.3),
    ("`yuv420sp2rgba` 4000x3000", "YuvToRgbaZol/4000/3000/0", "YuvToRgbaLibyuv/4000/3000/0",
     "libyuv `NV21ToABGR`", "time", 1.2),
    ("`yuv420sp2rgba` 1920x1080", "YuvToRgbaZol/1920/1080/0", "YuvToRgbaLibyuv/1920/1080/0",
     "libyuv `NV21ToABGR`", "time", 1.2),
    ("offline log, 20,000-line burst, caller p99", "BM_LatencyOfflineEntry/iterations:3",
     "BM_LatencySpdlogAsync/iterations:3", "spdlog async", "p99_ns", 0.5),
    ("offline log, paced, caller p99", "BM_PacedOfflineEntry/iterations:2",
     "BM_PacedSpdlogAsync/iterations:2", "spdlog async", "p99_ns", 1.0),
    ("offline log, lines into files", "BM_ThroughputOfflineLog/iterations:2/real_time",
     "BM_ThroughputSpdlogAsync/iterations:2/real_time", "spdlog async", "items_per_second",
     None),
]

TO_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def medians(paths, wall):
    """run_name -> {measure: median}, from every file given."""
    found = {}
    for path in paths:
        with open(path) as f:
            for b in json.load(f)["benchmarks"]:
                if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
                    continue
                # Without repetitions there are no aggregates: take the single run.
                name = b.get("run_name", b["name"])
                if b.get("run_type") == "iteration" and name in found:
                    continue
                entry = dict(b)
                scale = TO_NS[b.get("time_unit", "ns")]
                entry["time"] = (b["real_time"] if wall else b["cpu_time"]) * scale
                found[name] = entry
    return found


def show(measure, value):
    if measure == "items_per_second":
        return f"{value:,.0f} lines/s"
    ns = value
    if ns >= 1e6:
        return f"{ns / 1e6:.3g} ms"
    if ns >= 1e3:
        return f"{ns / 1e3:.3g} us"
    return f"{ns:.3g} ns"


def main(argv):
    wall = "--wall" in argv
    paths = [a for a in argv if a != "--wall"]
    if not paths:
        print(__doc__, file=sys.stderr)
        return 2
    found = medians(paths, wall)
    print(f"Medians, {'wall' if wall else 'CPU'} time; ratio above 1: ahead of the baseline.\n")
    print("| work | zoltools | beside it | ratio | goal |")
    print("|---|---|---|---|---|")
    for what, ours, base, base_what, measure, goal in ROWS:
        if ours not in found or base not in found:
            continue
        a, b = found[ours][measure], found[base][measure]
        ratio = a / b if measure == "items_per_second" else b / a
        mark = "" if goal is None else (" (met)" if ratio >= goal else "")
        goal_text = "-" if goal is None else f">= {goal}"
        print(f"| {what} | {show(measure, a)} | {base_what} {show(measure, b)} | "
              f"{ratio:.2f}{mark} | {goal_text} |")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
