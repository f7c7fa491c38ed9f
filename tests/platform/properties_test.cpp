#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/properties.h"

namespace {

TEST(Properties, EnvironmentVariableOfTheSameNameIsTheProperty) {
    // Set by ctest for this binary, before the process started.
    EXPECT_EQ(3, property_get_int32("persist.vendor.camera.zoltools.loglevel", 5));
    EXPECT_EQ(16, property_get_int32("zoltest.property.hex", 5));
}

TEST(Properties, UnsetOrMalformedGivesTheDefault) {
    struct Case {
        const char* value;
        int32_t expected;
    } cases[] = {
        {"", 7},
        {"abc", 7},
        {"12abc", 7},
        {"3 ", 7},
        {"0x", 7},
        {"2147483648", 7},
        {"-2147483649", 7},
        {"2147483647", 2147483647},
        {"-2147483648", INT32_MIN},
        {"-1", -1},
        {" 42", 42},
        {"010", 8},
        {"+5", 5},
    };
    EXPECT_EQ(7, property_get_int32("zoltest.property.unset", 7));
    for (const Case& c : cases) {
        setenv("zoltest.property.value", c.value, 1);
        EXPECT_EQ(c.expected, property_get_int32("zoltest.property.value", 7))
            << '"' << c.value << '"';
    }
    EXPECT_EQ(7, property_get_int32(nullptr, 7));
}

}  // namespace
