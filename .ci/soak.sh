#!/usr/bin/env bash
# The soak (bench/soak): N threads mixing buffer managers, logging, signal tasks and thread-pool
# work, once under ThreadSanitizer and once without sanitizers. It fails on a broken invariant,
# a race, descriptors not given back, steady RSS growth or offline-log lines lost.
#   .ci/soak.sh                                  60 s under TSan, 30 s without (about 2 min)
#   ZOL_SOAK_SECONDS=600 ZOL_SOAK_THREADS=8 .ci/soak.sh
# The soak needs only the library and is built with the tests (tests/CMakeLists.txt), so each
# build is configured exactly as ./run-tests.sh configures it and only the soak is built: this
# step and the test steps may run in any order and share their builds.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${ZOL_SOAK_SECONDS:-60}"
plain_seconds="${ZOL_SOAK_PLAIN_SECONDS:-30}"
threads="${ZOL_SOAK_THREADS:-4}"
default_dir="${ZOL_SOAK_DEFAULT_BUILD:-build/default}"
tsan_dir="${ZOL_SOAK_TSAN_BUILD:-build/tsan}"

tools/install-deps.sh

echo "--- soak without sanitizers, ${plain_seconds} s"
cmake --preset default -B "$default_dir" -DZOL_WERROR=ON >/dev/null
cmake --build "$default_dir" -j "$(nproc)" --target zol_soak
"$default_dir/bench/soak/zol_soak" --threads "$threads" --seconds "$plain_seconds"

echo "--- soak under ThreadSanitizer, ${seconds} s"
cmake --preset tsan -B "$tsan_dir" -DZOL_WERROR=ON >/dev/null
cmake --build "$tsan_dir" -j "$(nproc)" --target zol_soak
TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1" \
    "$tsan_dir/bench/soak/zol_soak" --threads "$threads" --seconds "$seconds"
