// Dump to and read back from raw files: the per-format geometry, byte for byte.
#include <android/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <string>

#include "bufferutil_test_support.h"
#include "zolbufferutil.h"
#include "zoltest.h"
#include "zoltoolsdef.h"

namespace {

using bufferutiltest::TestImage;

// The raw-file geometry of every format code for a 6 x 5 image: bytes per row of each plane
// (0: no such plane), and whether dump and read-back handle the format at all.
struct FormatCase {
    uint32_t format;
    int rowBytes0;
    int rowBytes1;  // plane 1 has height / 2 rows
    bool dumped;
    bool readBack;
};

constexpr uint32_t kWidth = 6;
constexpr uint32_t kHeight = 5;
constexpr uint32_t kStride = 16;
constexpr size_t kPlaneBytes = kStride * kHeight;

const FormatCase kFormats[] = {
    {0, 6, 6, true, true},    {1, 6, 6, true, true},    {2, 0, 0, false, false},
    {3, 9, 0, true, true},    {4, 10, 0, true, false},  {5, 12, 0, true, true},
    {6, 12, 12, true, true},  {7, 6, 0, true, true},    {8, 12, 0, true, false},
    {9, 12, 0, true, false},  {10, 12, 0, true, false}, {11, 12, 0, true, false},
    {12, 12, 0, true, false}, {13, 12, 0, true, false}, {14, 12, 0, true, false},
    {15, 0, 0, false, false}, {16, 0, 0, false, false}, {0xFFFFFFFFu, 0, 0, false, false},
};

void PrintTo(const FormatCase& c, std::ostream* os) {
    *os << "format " << c.format;
}

std::string UnknownFormatLine(uint32_t format) {
    return "unknow format: " + std::to_string(static_cast<int>(format));
}

class BufferFileTest : public ::testing::TestWithParam<FormatCase> {
protected:
    zoltest::DeviceRoot root_;
    std::string path_ = root_.path() + "/frame.yuv";
};

TEST_P(BufferFileTest, DumpWritesThePayloadRowsOfEachPlane) {
    const FormatCase c = GetParam();
    TestImage image(c.format, kWidth, kHeight, kStride, kPlaneBytes, 3);
    zoltest::LogCapture log;

    EXPECT_TRUE(ZOLBufferUtil::ZOLBufferDump(&image.buffer, path_.c_str()));

    std::string expected;
    if (c.dumped) {
        expected = image.Rows(0, kHeight, c.rowBytes0) + image.Rows(1, kHeight / 2, c.rowBytes1);
    }
    EXPECT_EQ(expected, zoltest::ReadFile(path_));
    EXPECT_EQ(c.dumped ? 0u : 1u, log.Count(UnknownFormatLine(c.format)));
}

TEST_P(BufferFileTest, ReadFillsThePayloadRowsAndClearsEightBytes) {
    const FormatCase c = GetParam();
    // The file holds more than any format needs; only the geometry decides what is read.
    TestImage source(c.format, kWidth, kHeight, kStride, kPlaneBytes, 50);
    std::string contents = source.Rows(0, kHeight, kStride) + source.Rows(1, kHeight, kStride);
    root_.WriteFile("/frame.yuv", contents);

    TestImage image(c.format, kWidth, kHeight, kStride, kPlaneBytes, 0);
    image.Fill(0xAA);
    zoltest::LogCapture log;
    ASSERT_TRUE(ZOLBufferUtil::ZOLReadBuffer(&image.buffer, &path_[0]));

    // First the eight cleared bytes of each plane, whatever the format; then the file's bytes
    // row after row, plane 0 first, skipping the stride padding.
    std::vector<uint8_t> expected[2] = {std::vector<uint8_t>(kPlaneBytes, 0xAA),
                                        std::vector<uint8_t>(kPlaneBytes, 0xAA)};
    for (auto& plane : expected) {
        std::fill(plane.begin(), plane.begin() + 8, 0);
    }
    if (c.readBack) {
        size_t offset = 0;
        const int rows[2] = {int{kHeight}, c.rowBytes1 > 0 ? int{kHeight / 2} : 0};
        const int bytes[2] = {c.rowBytes0, c.rowBytes1};
        for (int p = 0; p < 2; ++p) {
            for (int r = 0; r < rows[p]; ++r) {
                for (int b = 0; b < bytes[p]; ++b) {
                    expected[p][r * kStride + b] = static_cast<uint8_t>(contents[offset++]);
                }
            }
        }
    }
    EXPECT_EQ(expected[0], image.planes[0]);
    EXPECT_EQ(expected[1], image.planes[1]);
    EXPECT_EQ(c.readBack ? 0u : 1u, log.Count(UnknownFormatLine(c.format)));
}

INSTANTIATE_TEST_SUITE_P(EveryFormat, BufferFileTest, ::testing::ValuesIn(kFormats),
                         [](const ::testing::TestParamInfo<FormatCase>& info) {
                             return "format" + std::to_string(info.param.format);
                         });

TEST(BufferFile, DumpOfAFourByThreeImageHoldsSixteenBytes) {
    zoltest::DeviceRoot root;
    const std::string path = root.path() + "/f.yuv";
    TestImage image(0, 4, 3, 8, 24, 9);
    ASSERT_TRUE(ZOLBufferUtil::ZOLBufferDump(&image.buffer, path.c_str()));
    EXPECT_EQ(image.Rows(0, 3, 4) + image.Rows(1, 1, 4), zoltest::ReadFile(path));
}

TEST(BufferFile, OneRowImagesHaveNoSecondPlaneInTheFile) {
    zoltest::DeviceRoot root;
    const std::string path = root.path() + "/f.yuv";
    for (uint32_t format : {0u, 1u, 6u}) {
        TestImage image(format, 4, 1, 8, 8, 1);
        ASSERT_TRUE(ZOLBufferUtil::ZOLBufferDump(&image.buffer, path.c_str()));
        EXPECT_EQ(image.Rows(0, 1, format == 6 ? 8 : 4), zoltest::ReadFile(path)) << format;

        // And reading that file back leaves plane 1 alone apart from its first eight bytes.
        TestImage back(format, 4, 1, 8, 16, 0);
        back.Fill(0x55);
        ASSERT_TRUE(ZOLBufferUtil::ZOLReadBuffer(&back.buffer, const_cast<char*>(path.c_str())));
        EXPECT_EQ(std::vector<uint8_t>(8, 0),
                  std::vector<uint8_t>(back.planes[1].begin(), back.planes[1].begin() + 8));
        EXPECT_EQ(std::vector<uint8_t>(8, 0x55),
                  std::vector<uint8_t>(back.planes[1].begin() + 8, back.planes[1].end()));
    }
}

TEST(BufferFile, DumpThenReadGivesBackThePayloadOfEveryReadableFormat) {
    zoltest::DeviceRoot root;
    std::string path = root.path() + "/f.yuv";
    for (uint32_t format : {0u, 1u, 3u, 5u, 6u, 7u}) {
        TestImage source(format, 10, 7, 24, 24 * 7, static_cast<uint8_t>(format));
        ASSERT_TRUE(ZOLBufferUtil::ZOLBufferDump(&source.buffer, path.c_str()));
        TestImage back(format, 10, 7, 24, 24 * 7, 0);
        back.Fill(0);
        ASSERT_TRUE(ZOLBufferUtil::ZOLReadBuffer(&back.buffer, &path[0]));
        const int rowBytes = format <= 1 || format == 7 ? 10 : format == 3 ? 15 : 20;
        EXPECT_EQ(source.Rows(0, 7, rowBytes), back.Rows(0, 7, rowBytes)) << format;
        const int rows1 = format <= 1 || format == 6 ? 3 : 0;
        EXPECT_EQ(source.Rows(1, rows1, rowBytes), back.Rows(1, rows1, rowBytes)) << format;
    }
}

TEST(BufferFile, ShortFileLeavesTheRowsItDoesNotReach) {
    zoltest::DeviceRoot root;
    // 2.5 rows of plane 0 of a 4-wide image: rows 0 and 1 arrive, row 2 gets the partial bytes
    // the library read, nothing reaches plane 1.
    const std::string path = root.WriteFile("/short.yuv", "ABCDEFGHIJ");
    TestImage image(0, 4, 4, 4, 16, 0);
    image.Fill('.');
    ASSERT_TRUE(ZOLBufferUtil::ZOLReadBuffer(&image.buffer, const_cast<char*>(path.c_str())));
    const std::string plane0(image.planes[0].begin(), image.planes[0].end());
    EXPECT_EQ("ABCDEFGH", plane0.substr(0, 8));
    EXPECT_EQ("....", plane0.substr(12, 4));
    EXPECT_EQ(std::string(8, '\0') + "........",
              std::string(image.planes[1].begin(), image.planes[1].end()));
}

TEST(BufferFile, UnopenableFilesFailSilentlyAndTouchNothing) {
    zoltest::DeviceRoot root;
    TestImage image(0, 4, 2, 4, 8, 7);
    const auto before = image.planes[0];
    zoltest::LogCapture log;
    EXPECT_FALSE(ZOLBufferUtil::ZOLBufferDump(&image.buffer, (root.path() + "/no/f").c_str()));
    std::string missing = root.path() + "/missing.yuv";
    EXPECT_FALSE(ZOLBufferUtil::ZOLReadBuffer(&image.buffer, &missing[0]));
    EXPECT_EQ(before, image.planes[0]);
    EXPECT_TRUE(log.Lines().empty());
}

TEST(BufferFile, UnknownFormatLineIsWrittenWhateverTheLevel) {
    zoltest::DeviceRoot root;
    std::string path = root.path() + "/f.yuv";
    TestImage image(15, 4, 2, 4, 8, 7);
    ZOLToolsLogLevel = 0;
    zoltest::LogCapture log;
    EXPECT_TRUE(ZOLBufferUtil::ZOLBufferDump(&image.buffer, path.c_str()));
    image.buffer.format = 4;
    EXPECT_TRUE(ZOLBufferUtil::ZOLReadBuffer(&image.buffer, &path[0]));
    const auto lines = log.Lines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(ANDROID_LOG_ERROR, lines[0].priority);
    EXPECT_EQ("ZOL", lines[0].tag);
    EXPECT_EQ("unknow format: 15", lines[0].text);
    EXPECT_EQ("unknow format: 4", lines[1].text);
}

TEST(BufferFile, ClearingWorksOnUnalignedPlanes) {
    zoltest::DeviceRoot root;
    const std::string path = root.WriteFile("/f.yuv", "");
    std::vector<uint8_t> storage(40, 0xFF);
    ZOLImageBuffer buffer = {};
    buffer.format = 2;
    buffer.Addr[0] = storage.data() + 1;
    buffer.Addr[1] = storage.data() + 21;
    ASSERT_TRUE(ZOLBufferUtil::ZOLReadBuffer(&buffer, const_cast<char*>(path.c_str())));
    std::vector<uint8_t> expected(40, 0xFF);
    std::fill(expected.begin() + 1, expected.begin() + 9, 0);
    std::fill(expected.begin() + 21, expected.begin() + 29, 0);
    EXPECT_EQ(expected, storage);
}

TEST(BufferFile, PlaneFunctionsWriteAndReadOneRowPerCallOnTheirOwn) {
    zoltest::DeviceRoot root;
    const std::string path = root.path() + "/p.raw";
    const uint8_t src[12] = {1, 2, 3, 9, 4, 5, 6, 9, 7, 8, 9, 9};
    FILE* file = fopen(path.c_str(), "wb+");
    ASSERT_NE(nullptr, file);
    ZOLBufferUtil::ZOLDumpPlane(file, const_cast<uint8_t*>(src), 3, 3, 4);
    ZOLBufferUtil::ZOLDumpPlane(file, const_cast<uint8_t*>(src), 3, 0, 4);   // no rows
    ZOLBufferUtil::ZOLDumpPlane(file, const_cast<uint8_t*>(src), -1, 2, 4);  // no bytes
    rewind(file);
    uint8_t dst[10] = {};
    ZOLBufferUtil::ZOLReadPlane(file, dst, 3, 3, 3);
    fclose(file);
    EXPECT_EQ(std::string("\1\2\3\4\5\6\7\10\11", 9), zoltest::ReadFile(path));
    EXPECT_EQ(std::vector<uint8_t>({1, 2, 3, 4, 5, 6, 7, 8, 9, 0}),
              std::vector<uint8_t>(dst, dst + 10));
}

TEST(BufferFileDeathTest, RowSizesThatOverflowAbort) {
    zoltest::DeviceRoot root;
    const std::string path = root.WriteFile("/f.yuv", "");
    uint8_t plane[8] = {};
    ZOLImageBuffer buffer = {};
    buffer.width = 0x20000000;  // x 12 overflows, x 2 does not
    buffer.height = 1;
    buffer.Addr[0] = plane;
    buffer.Addr[1] = plane;
    buffer.format = 3;
    EXPECT_DEATH(ZOLBufferUtil::ZOLBufferDump(&buffer, path.c_str()), "overflow");
    buffer.format = 4;
    EXPECT_DEATH(ZOLBufferUtil::ZOLBufferDump(&buffer, path.c_str()), "overflow");
    buffer.width = 0x80000000u;
    buffer.format = 5;
    EXPECT_DEATH(ZOLBufferUtil::ZOLReadBuffer(&buffer, const_cast<char*>(path.c_str())),
                 "overflow");
}

}  // namespace
