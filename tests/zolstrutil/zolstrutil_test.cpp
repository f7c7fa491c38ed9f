#include <gtest/gtest.h>

#include <string>

#include "zolstrutil.h"

namespace {

std::string Lowered(std::string text) {
    ZOLStrUtil::ToLowerCaseStr(&text[0]);
    return text;
}

TEST(StrUtilTest, LowersAsciiCapitalsOnly) {
    EXPECT_EQ("mixed case 123 _-+!", Lowered("MiXeD CaSe 123 _-+!"));
    EXPECT_EQ("@[`{", Lowered("@[`{")) << "the neighbours of A-Z and a-z stay";
    EXPECT_EQ("az", Lowered("AZ"));
    EXPECT_EQ("\xC0\xC9\xDE\xFF", Lowered("\xC0\xC9\xDE\xFF")) << "bytes above 127 stay";
    EXPECT_EQ("", Lowered(""));
    EXPECT_EQ(std::string("ab\0CD", 5), Lowered(std::string("AB\0CD", 5))) << "stops at NUL";
}

TEST(StrUtilTest, ReadsPlainDecimals) {
    EXPECT_EQ(0.0f, ZOLStrUtil::StrToFloat(""));
    EXPECT_EQ(42.0f, ZOLStrUtil::StrToFloat("42"));
    EXPECT_EQ(12.5f, ZOLStrUtil::StrToFloat("12.5"));
    EXPECT_EQ(0.5f, ZOLStrUtil::StrToFloat(".5"));
    EXPECT_EQ(7.0f, ZOLStrUtil::StrToFloat("7."));
    EXPECT_FLOAT_EQ(3.14159f, ZOLStrUtil::StrToFloat("3.14159"));
}

TEST(StrUtilTest, SkipsSignsLettersAndEverythingElse) {
    EXPECT_EQ(2.5f, ZOLStrUtil::StrToFloat("-2.5")) << "never negative";
    EXPECT_EQ(7.0f, ZOLStrUtil::StrToFloat(" + 7 "));
    EXPECT_EQ(123.0f, ZOLStrUtil::StrToFloat("1a2b3"));
    EXPECT_EQ(13.0f, ZOLStrUtil::StrToFloat("1e3")) << "no exponent: its digits join";
    EXPECT_EQ(15.0f, ZOLStrUtil::StrToFloat("1,5"));
    EXPECT_EQ(0.0f, ZOLStrUtil::StrToFloat("abc"));
}

TEST(StrUtilTest, SecondPointReturnsToTheIntegerPart) {
    EXPECT_EQ(15.0f, ZOLStrUtil::StrToFloat("1.2.3"));
    // A third point starts a new fraction on the value reached: 15 + 0.4.
    EXPECT_EQ(15.0f + 4.0f / 10.0f, ZOLStrUtil::StrToFloat("1.2.3.4"));
}

TEST(StrUtilTest, ComputesInSinglePrecision) {
    // 1 + 1/10 + 1/100 + 1/1000, every step rounded to float.
    float expected = 1.0f;
    expected += 1.0f / 10.0f;
    expected += 1.0f / 100.0f;
    expected += 1.0f / 1000.0f;
    EXPECT_EQ(expected, ZOLStrUtil::StrToFloat("1.111"));
    EXPECT_EQ(16777216.0f, ZOLStrUtil::StrToFloat("16777217"));
}

// A fraction keeps its first 19 digits; the 20th and later would need a divisor above 10^19.
TEST(StrUtilTest, FractionDigitsPastTheNineteenthAreIgnored) {
    const std::string nineteen = "0.1234567890123456789";
    EXPECT_EQ(ZOLStrUtil::StrToFloat(nineteen.c_str()),
              ZOLStrUtil::StrToFloat((nineteen + "99999999999999999999").c_str()));

    const std::string zeros18 = "0." + std::string(18, '0');
    EXPECT_EQ(9.0f / 1e19f, ZOLStrUtil::StrToFloat((zeros18 + "9").c_str())) << "19th digit";
    EXPECT_EQ(0.0f, ZOLStrUtil::StrToFloat((zeros18 + "09").c_str())) << "20th digit";

    // The limit is per fraction run: a later run counts its digits afresh.
    const std::string longRun = "2." + std::string(40, '0');
    EXPECT_EQ(23.5f, ZOLStrUtil::StrToFloat((longRun + ".3.5").c_str()));
}

}  // namespace
