#!/usr/bin/env bash
# Builds zoltools and runs the example (installs missing Debian packages first).
set -euo pipefail
cd "$(dirname "$0")"

tools/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)"
prefix="$PWD/build/example-prefix"
cmake --install build/default --prefix "$prefix" >/dev/null
cmake -S tests/consumer -B build/example-consumer -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build build/example-consumer -j "$(nproc)"
build/example-consumer/consumer
