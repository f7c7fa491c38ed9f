#!/usr/bin/env bash
# Builds the libFuzzer targets (fuzz/) with clang, ASan and UBSan, and runs each for a bounded
# time from its seed corpus, two at a time on a 2-core machine. Any crash, sanitizer report,
# failed check or time-out fails the run; the reproducer is left in build/fuzz/artifacts/.
#   .ci/fuzz.sh                          every target, 60 s each (about 4 min plus the build)
#   ZOL_FUZZ_SECONDS=600 .ci/fuzz.sh replay   one target, longer
# Corpora grow in build/fuzz/corpus/<target> and are reused by the next run on the same tree.
set -euo pipefail
cd "$(dirname "$0")/.."
root="$PWD"
seconds="${ZOL_FUZZ_SECONDS:-60}"
jobs="${ZOL_FUZZ_JOBS:-$(nproc)}"
build="${ZOL_FUZZ_BUILD:-$root/build/fuzz}"

tools/install-deps.sh clang libclang-rt-14-dev
cmake -S fuzz -B "$build" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ >/dev/null
cmake --build "$build" -j "$(nproc)"

if [ $# -gt 0 ]; then
    targets=("$@")
else
    targets=(settings_file psi strutil read_buffer request_file database_file replay)
fi
mkdir -p "$build/logs"

run_one() {
    local t="$1"
    local dict=()
    [ -f "$root/fuzz/dict/$t.dict" ] && dict=(-dict="$root/fuzz/dict/$t.dict")
    mkdir -p "$build/corpus/$t" "$build/artifacts/$t"
    local rc=0
    "$build/zolfuzz_$t" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 \
        -print_final_stats=1 -artifact_prefix="$build/artifacts/$t/" "${dict[@]}" \
        "$build/corpus/$t" "$root/fuzz/corpus/$t" >"$build/logs/$t.log" 2>&1 || rc=$?
    local execs units
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$build/logs/$t.log")
    units=$(ls "$build/corpus/$t" "$root/fuzz/corpus/$t" | wc -l)
    printf '%-14s exit %-3s executions %-10s corpus %s inputs\n' "$t" "$rc" "${execs:-?}" "$units"
    if [ "$rc" -ne 0 ]; then
        tail -n 60 "$build/logs/$t.log"
        return 1
    fi
}
export -f run_one
export root build seconds

printf '%s\n' "${targets[@]}" | xargs -P "$jobs" -I{} bash -c 'run_one "$@"' _ {}
