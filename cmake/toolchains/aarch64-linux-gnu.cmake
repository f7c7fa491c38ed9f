# Cross build for 64-bit Arm Linux with Debian's cross compiler (g++-aarch64-linux-gnu), the
# test programs run under qemu-user. Libraries come from Debian's multiarch arm64 packages
# (dpkg --add-architecture arm64; android-liblog-dev:arm64), so there is no separate sysroot:
# CMAKE_LIBRARY_ARCHITECTURE makes the find_* calls look in /usr/lib/aarch64-linux-gnu.
#
#   cmake --preset default -B build/arm64 --toolchain cmake/toolchains/aarch64-linux-gnu.cmake
#
# .ci/arm64.sh does the whole thing (packages, GoogleTest for arm64, build, ctest).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# The test programs run under qemu-user, through a small script (see it for why).
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/qemu-aarch64-run)
