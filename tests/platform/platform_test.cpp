// The host stand-ins for the platform: properties, device paths, the DMA-buf allocator, graphic
// buffers, and the fatal-error helpers.
#include <BufferAllocator/BufferAllocator.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/devicepath.h"
#include "platform/properties.h"
#include "zoltest.h"
#include "zoltoolsdef/zolfatal.h"

namespace {

TEST(Properties, TheEnvironmentVariableOfTheSameNameOrTheDefault) {
    EXPECT_EQ(3, property_get_int32("persist.vendor.camera.zoltools.loglevel", 5));  // from ctest
    EXPECT_EQ(7, property_get_int32("zoltest.property.unset", 7));
    EXPECT_EQ(7, property_get_int32(nullptr, 7));
    const struct {
        const char* value;
        int32_t expected;
    } rows[] = {{"", 7},
                {"abc", 7},
                {"12abc", 7},
                {"3 ", 7},
                {"0x", 7},
                {"2147483648", 7},
                {"-2147483649", 7},
                {"0x10", 16},
                {"-1", -1},
                {" 42", 42},
                {"010", 8},
                {"+5", 5},
                {"2147483647", INT32_MAX},
                {"-2147483648", INT32_MIN}};
    for (const auto& row : rows) {
        setenv("zoltest.property.value", row.value, 1);
        EXPECT_EQ(row.expected, property_get_int32("zoltest.property.value", 7)) << row.value;
    }
}

TEST(DevicePath, DataAndVendorPathsFollowTheDeviceRoot) {
    const struct {
        const char* root;  // null: unset
        const char* path;
        std::string expected;
    } rows[] = {
        {"/r", "/data/vendor/camera/offlinelog/", "/r/data/vendor/camera/offlinelog/"},
        {"/r", "/vendor/etc/camera/camxoverridesettings.txt",
         "/r/vendor/etc/camera/camxoverridesettings.txt"},
        {"/r", "/data", "/r/data"},
        {"/r//", "/vendor/x", "/r/vendor/x"},
        {"/r", "/proc/pressure/cpu", "/proc/pressure/cpu"},
        {"/r", "/database/x", "/database/x"},
        {"/r", "/vendorx", "/vendorx"},
        {"/r", "data/vendor", "data/vendor"},
        {"/r", nullptr, ""},
        {"", "/data/vendor/camera/", "/data/vendor/camera/"},
        {nullptr, "/data/vendor/camera/", "/data/vendor/camera/"},
    };
    for (const auto& row : rows) {
        row.root != nullptr ? setenv("ZOL_DEVICE_ROOT", row.root, 1) : unsetenv("ZOL_DEVICE_ROOT");
        EXPECT_EQ(row.expected, zol::DevicePath(row.path)) << (row.path ? row.path : "null");
    }
}

TEST(BufferAllocator, MemfdBuffersShareTheirPagesAndLeaveNothingBehind) {
    if (BufferAllocator().UsesDmaHeap()) {
        GTEST_SKIP() << "this machine has a DMA heap; the memfd path is not in use";
    }
    const int fds = zoltest::CountOpenFds(), maps = zoltest::CountSharedMappings();
    for (size_t len : {size_t{3 * 4096 + 100}, size_t{4096}, size_t{8192}}) {
        BufferAllocator allocator;
        const int fd = allocator.AllocSystem(true, len, 0, 0);
        ASSERT_GE(fd, 0);
        EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD) & FD_CLOEXEC);
        auto* a = static_cast<unsigned char*>(
            mmap(nullptr, len, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
        auto* b = static_cast<unsigned char*>(
            mmap(nullptr, len, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
        ASSERT_TRUE(a != MAP_FAILED && b != MAP_FAILED && a != b);
        EXPECT_EQ(0, a[len - 1]);  // new buffers read as zeros
        std::memset(a, 0x5a, len);
        EXPECT_EQ(0x5a, b[len - 1]);
        EXPECT_EQ(0, allocator.CpuSyncStart(fd, kSyncReadWrite));
        EXPECT_EQ(0, allocator.CpuSyncEnd(fd, kSyncRead));
        munmap(a, len);
        munmap(b, len);
        close(fd);
    }
    EXPECT_EQ(fds, zoltest::CountOpenFds());
    EXPECT_EQ(maps, zoltest::CountSharedMappings());
}

TEST(GraphicBuffer, CountsReferencesAndRoundTripsThroughTheHardwareBuffer) {
    NATIVE_HANDLE_DECLARE_STORAGE(storage, 0, 1);
    std::memset(storage, 0, sizeof(storage));
    auto* handle = reinterpret_cast<native_handle_t*>(storage);
    android::sp<android::GraphicBuffer> buffer = new android::GraphicBuffer(
        handle, android::GraphicBuffer::WRAP_HANDLE, 640, 480, 34, 0, 0x20000, 704);
    android::sp<android::GraphicBuffer> copy = buffer;
    EXPECT_EQ(2, buffer->getStrongCount());
    EXPECT_EQ(buffer.get(),
              android::GraphicBuffer::fromAHardwareBuffer(buffer->toAHardwareBuffer()));
    EXPECT_EQ(2, buffer->getStrongCount());
    copy.clear();
    EXPECT_EQ(1, buffer->getStrongCount());
}

TEST(FatalDeathTest, OverflowsIndicesAndConditionsAbortWithTheirText) {
    EXPECT_EQ(12u, zol::CheckedMul<uint32_t>(3, 4));
    EXPECT_EQ(3u, zol::CheckedIndex(3, 4));
    EXPECT_DEATH(zol::CheckedMul<uint32_t>(65536, 65536), "overflow in multiplication");
    EXPECT_DEATH(zol::CheckedAdd<uint32_t>(UINT32_MAX, 1), "overflow in addition");
    EXPECT_DEATH(zol::CheckedSub<uint32_t>(0, 1), "overflow in subtraction");
    EXPECT_DEATH(zol::CheckedMul<int32_t>(INT32_MAX, 2), "overflow");
    EXPECT_DEATH(zol::CheckedIndex(4, 4), "index past its bound");
    const int planes = 5;
    EXPECT_DEATH(ZOL_FATAL_IF(planes > 4), "platform_test.cpp:[0-9]+ fatal: planes > 4");
}

}  // namespace
