#!/usr/bin/env bash
# Builds zoltools and runs its whole unit-test suite (installs missing Debian packages first).
#   ./run-tests.sh            RelWithDebInfo build in build/default
#   ./run-tests.sh asan       the same under AddressSanitizer + UndefinedBehaviorSanitizer
#   ./run-tests.sh tsan       the same under ThreadSanitizer
set -euo pipefail
cd "$(dirname "$0")"
preset="${1:-default}"

tools/install-deps.sh
cmake --preset "$preset" -DZOL_WERROR=ON >/dev/null
cmake --build --preset "$preset" -j "$(nproc)"
ctest --preset "$preset" -j "$(nproc)"
