#include <gtest/gtest.h>

#include <string>

#include "zolstrutil.h"

namespace {

TEST(StrUtil, LowersAsciiCapitalsOnlyAndStopsAtTheEnd) {
    const struct {
        std::string text, lowered;
    } rows[] = {{"MiXeD CaSe 123 _-+!", "mixed case 123 _-+!"},
                {"@[`{AZ", "@[`{az"},  // the neighbours of A-Z and a-z stay
                {"\xC0\xC9\xDE\xFF", "\xC0\xC9\xDE\xFF"},
                {"", ""},
                {std::string("AB\0CD", 5), std::string("ab\0CD", 5)}};
    for (auto row : rows) {
        ZOLStrUtil::ToLowerCaseStr(&row.text[0]);
        EXPECT_EQ(row.lowered, row.text);
    }
}

// Digits and points only, in single precision, each fraction digit added on its own: no sign,
// no exponent, and a second point goes back to the integer part.
TEST(StrUtil, StrToFloatReadsDigitsAndPointsOnly) {
    const std::string zeros18 = "0." + std::string(18, '0');
    const struct {
        std::string text;
        float value;
    } rows[] = {{"", 0.0f},
                {"42", 42.0f},
                {"12.5", 12.5f},
                {".5", 0.5f},
                {"7.", 7.0f},
                {"3.25", 3.25f},
                {"-2.5", 2.5f},
                {" + 7 ", 7.0f},
                {"1a2b3", 123.0f},
                {"1e3", 13.0f},
                {"1,5", 15.0f},
                {"abc", 0.0f},
                {"1.2.3", 15.0f},
                {"1.2.3.4", 15.4f},
                {"1.111", 0x1.1c6a8p+0f},  // 1.11100006, where 1.111f is 1.11099994
                {"16777217", 16777216.0f},
                // A fraction run keeps its first 19 digits; a later run counts afresh.
                {zeros18 + "9999", 9e-19f},
                {zeros18 + "09", 0.0f},
                {"2." + std::string(40, '0') + ".3.5", 23.5f}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.value, ZOLStrUtil::StrToFloat(row.text.c_str())) << '"' << row.text << '"';
    }
}

}  // namespace
