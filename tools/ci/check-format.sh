#!/usr/bin/env bash
# Lists the project's C++ files that .clang-format would change.
set -euo pipefail
cd "$(dirname "$0")/../.."
files=$(git ls-files '*.cpp' '*.h' '*.cc')
bad=0
for f in $files; do
    if ! clang-format --dry-run --Werror "$f" >/dev/null 2>&1; then
        echo "needs clang-format: $f"
        bad=1
    fi
done
exit $bad
