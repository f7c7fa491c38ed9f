#!/usr/bin/env bash
# A compile check: the library, the tools and the example built with Debian's clang, whose
# -Wthread-safety (on for clang builds, cmake/ZolFlags.cmake) checks every guarded member and
# every function that needs or takes a lock against the annotations of zolmutex.h, warnings as
# errors. Nothing runs. A minute or two on 2 cores; its own build directory, build/clang.
set -euo pipefail
cd "$(dirname "$0")/.."
start=$SECONDS
trap 'echo "clang: $((SECONDS - start)) s"' EXIT
tools/install-deps.sh
cmake --preset clang >/dev/null
cmake --build --preset clang -j "$(nproc)"
