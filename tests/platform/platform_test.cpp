// The host stand-ins for the platform's properties and device paths, and the descriptor and
// fatal-error helpers. The DMA-buf and graphic buffer stand-ins are tested through the buffer
// allocator.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>

#include "platform/devicepath.h"
#include "platform/openfile.h"
#include "platform/properties.h"
#include "zoltoolsdef/internal/zolfatal.h"

namespace {

TEST(Properties, TheEnvironmentVariableOfTheSameNameOrTheDefault) {
    EXPECT_EQ(3, property_get_int32("persist.vendor.camera.zoltools.loglevel", 5));  // from ctest
    EXPECT_EQ(7, property_get_int32("zoltest.property.unset", 7));
    EXPECT_EQ(7, property_get_int32(nullptr, 7));
    auto read = [](const char* value) {
        setenv("zoltest.property.value", value, 1);
        return property_get_int32("zoltest.property.value", 7);
    };
    for (const char* junk : {"", "abc", "12abc", "3 ", "0x", "2147483648", "-2147483649"}) {
        EXPECT_EQ(7, read(junk)) << junk;
    }
    const struct {
        const char* value;
        int32_t expected;
    } rows[] = {{"0x10", 16},
                {"-1", -1},
                {" 42", 42},
                {"010", 8},
                {"+5", 5},
                {"2147483647", INT32_MAX},
                {"-2147483648", INT32_MIN}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.expected, read(row.value)) << row.value;
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

// The owner closes its descriptor, 0 included, keeping errno; assigning closes the descriptor
// it replaces; a released one stays open.
TEST(UniqueFd, ClosesWhatItOwnsOnceKeepingErrno) {
    ASSERT_EQ(0, close(0));  // a process of its own: 0 becomes the lowest free descriptor
    zol::UniqueFd fd = zol::Open("/dev/null", O_RDONLY);
    ASSERT_EQ(0, fd.get());
    const int released = zol::Open("/dev/null", O_RDONLY).release();
    fd = zol::Open("/dev/null", O_RDONLY);
    EXPECT_EQ(-1, fcntl(0, F_GETFD)) << "the replaced descriptor is still open";
    const int assigned = fd.get();
    errno = ENOSPC;
    fd.reset();
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_EQ(-1, fcntl(assigned, F_GETFD)) << "still open";
    EXPECT_EQ(0, close(released));
}

TEST(FatalDeathTest, OverflowsIndicesAndConditionsAbortWithTheirText) {
    EXPECT_EQ(12u, zol::CheckedMul<uint32_t>(3, 4));
    EXPECT_EQ(3u, zol::CheckedIndex(3, 4));
    EXPECT_DEATH(zol::CheckedMul<uint32_t>(65536, 65536),
                 "platform_test.cpp:[0-9]+ fatal: integer overflow in multiplication");
    EXPECT_DEATH(zol::CheckedAdd<uint32_t>(UINT32_MAX, 1), "overflow in addition");
    EXPECT_DEATH(zol::CheckedSub<uint32_t>(0, 1), "overflow in subtraction");
    EXPECT_DEATH(zol::CheckedMul<int32_t>(INT32_MAX, 2), "overflow");
    EXPECT_DEATH(zol::CheckedIndex(4, 4), "index past its bound");
    const int planes = 5;
    EXPECT_DEATH(ZOL_FATAL_IF(planes > 4), "platform_test.cpp:[0-9]+ fatal: planes > 4");
}

}  // namespace
