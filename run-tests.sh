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
# ctest names the tests it skipped but not why; each one's output says it.
log="build/$preset/Testing/Temporary/LastTest.log"
if grep -q ': Skipped$' "$log" 2>/dev/null; then
    echo "Why tests were skipped:"
    awk '/: Skipped$/ { where = $1; sub(".*/", "", where); getline; print "  " where " " $0 }' \
        "$log" | sort -u
fi
