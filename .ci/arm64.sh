#!/usr/bin/env bash
# Cross-builds zoltools and its whole test suite for 64-bit Arm (aarch64-linux-gnu) and runs the
# suite with ctest under qemu-user, every test case in a process of its own as on the host.
# Installs what it needs first (Debian 12; root, or sudo).
#
#   .ci/arm64.sh [default|asan] [build-dir]     build-dir: build/arm64, build/arm64-asan
#
# asan: AddressSanitizer + UndefinedBehaviorSanitizer, leak detection off (LeakSanitizer does
# not run under qemu-user). ZOL_JOBS sets the build and test parallelism (default 2). Prints
# the step's wall time.
set -euo pipefail
src="$(cd "$(dirname "$0")/.." && pwd)"
preset="${1:-default}"
case "$preset" in
default) build="${2:-$src/build/arm64}" ;;
asan) build="${2:-$src/build/arm64-asan}" ;;
*)
    echo "usage: $0 [default|asan] [build-dir]" >&2
    exit 2
    ;;
esac
build="$(realpath -m "$build")"
jobs="${ZOL_JOBS:-2}"
toolchain="$src/cmake/toolchains/aarch64-linux-gnu.cmake"
export DEBIAN_FRONTEND=noninteractive

start=$SECONDS
trap 'echo "arm64: $((SECONDS - start)) s"' EXIT
phase() {
    echo "--- arm64: $* ($((SECONDS - start)) s elapsed)"
}

# Runs a command with its output kept back unless it fails.
quiet() {
    local log
    log="$(mktemp)"
    if ! "$@" >"$log" 2>&1; then
        cat "$log"
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
}

sudo=""
if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
fi

# Packages: the cross compiler; qemu-user; the arm64 Android log library, with which come the
# arm64 C and C++ runtimes the tests run against; GoogleTest's sources; the Android headers,
# which are the same for every architecture.
packages=(
    cmake make g++-aarch64-linux-gnu qemu-user googletest
    android-liblog-dev:arm64 android-libutils-dev android-libcutils-dev
)
if [ "$preset" = asan ]; then
    packages+=(libasan8:arm64 libubsan1:arm64)
fi
if ! dpkg --print-foreign-architectures | grep -qx arm64; then
    $sudo dpkg --add-architecture arm64
fi
missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done
if [ ${#missing[@]} -ne 0 ]; then
    phase "installing ${missing[*]}"
    quiet $sudo apt-get update -qq
    quiet $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# GoogleTest for arm64, built with the cross compiler from the sources Debian installs, into
# the build tree. Rebuilt only when the googletest package changes.
gtest="$build/_deps/googletest"
gtest_version="$(dpkg-query -W -f='${Version}' googletest)"
if [ "$(cat "$gtest/.version" 2>/dev/null)" != "$gtest_version" ]; then
    phase "GoogleTest $gtest_version for arm64"
    rm -rf "$gtest" "$gtest-build"
    quiet cmake -S /usr/src/googletest -B "$gtest-build" --toolchain "$toolchain" \
        -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX="$gtest"
    quiet cmake --build "$gtest-build" -j "$jobs"
    quiet cmake --install "$gtest-build"
    echo "$gtest_version" >"$gtest/.version"
fi

# The library, its tests and the example. Benchmarks and the tools (with their tests) are for
# the build machine, not the device.
cd "$src"
phase "configure and build"
quiet cmake --preset "$preset" -B "$build" --toolchain "$toolchain" -DZOL_WERROR=ON \
    -DZOL_BUILD_BENCH=OFF -DZOL_BUILD_TOOLS=OFF -DGTest_DIR="$gtest/lib/cmake/GTest"
cmake --build "$build" -j "$jobs"
phase "tests under qemu"
if [ "$preset" = asan ]; then
    export ZOL_QEMU_VMEM_KB=unlimited  # the shadow memory (see qemu-aarch64-run)
    export ASAN_OPTIONS=detect_leaks=0:abort_on_error=1
    export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
fi
ctest --test-dir "$build" -j "$jobs" --output-on-failure
