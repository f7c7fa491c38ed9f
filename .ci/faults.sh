#!/usr/bin/env bash
# The fault-injection tests (tests/faults, ctest label "faults") on their own, in every CI build
# that exists (build/default, build/asan, build/tsan; build/default is made if none does). They
# also run as part of each unit-test suite; this step shows them apart, with the reason when one
# is skipped (forks under the sanitizers).
# About a minute once the builds exist.
set -euo pipefail
cd "$(dirname "$0")/.."

presets=()
for preset in default asan tsan; do
    [ -f "build/$preset/CTestTestfile.cmake" ] && presets+=("$preset")
done
if [ ${#presets[@]} -eq 0 ]; then
    tools/install-deps.sh
    cmake --preset default -DZOL_WERROR=ON >/dev/null
    presets=(default)
fi
for preset in "${presets[@]}"; do
    echo "--- fault injection, $preset build"
    # Only the fault programs: the malloc one exists without sanitizers only.
    targets=(faults_hostile_test faults_scenario_test)
    [ "$preset" = default ] && targets+=(faults_malloc_test)
    cmake --build --preset "$preset" -j "$(nproc)" --target "${targets[@]}" >/dev/null
    ctest --preset "$preset" -L faults -j "$(nproc)"
done
