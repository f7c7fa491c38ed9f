// Plane copy between image buffers, dump to and read from raw files, the directory walk and
// ZOLGetFileName.
#include <android/log.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <string>
#include <vector>

#include "zolbufferutil.h"
#include "zoltest.h"
#include "zoltoolsdef.h"

namespace {

using zoltest::TestImage;

TEST(BufferCopy, SourceRowsLandInTheDestinationsRowsAndNothingElseMoves) {
    const struct {
        uint32_t format[2], width[2], height[2], stride[2];  // source, destination
        bool copied;
        int rows0, rowBytes, rows1;  // plane 1 rows have rowBytes too
    } rows[] = {
        {{0, 1}, {6, 6}, {4, 4}, {8, 11}, true, 4, 6, 2},  // strides differ
        {{0, 0}, {6, 4}, {4, 6}, {8, 8}, true, 4, 6, 2},   // transposed sizes match, no rotation
        {{1, 7}, {4, 4}, {2, 2}, {8, 8}, true, 2, 4, 1},   // either format 0 or 1 will do
        {{0, 0}, {6, 6}, {4, 3}, {8, 8}, false, 0, 0, 0},
        {{7, 5}, {5, 5}, {3, 3}, {12, 16}, true, 3, 10, 0},  // 16 bits, one plane
        {{5, 5}, {5, 5}, {0, 0}, {12, 16}, true, 0, 0, 0},
        {{5, 1}, {4, 1}, {1, 4}, {8, 8}, true, 1, 4, 0},  // two planes win; one row has no chroma
        {{3, 7}, {4, 4}, {2, 2}, {8, 8}, false, 0, 0, 0},
        {{2, 14}, {4, 4}, {2, 2}, {8, 8}, false, 0, 0, 0},
        {{15, 3}, {4, 4}, {2, 2}, {8, 8}, false, 0, 0, 0},
        {{6, 4}, {4, 4}, {2, 2}, {8, 8}, false, 0, 0, 0},
    };
    for (const auto& row : rows) {
        TestImage src(row.format[0], row.width[0], row.height[0], row.stride[0], 96, 1);
        TestImage dst(row.format[1], row.width[1], row.height[1], row.stride[1], 96, 0);
        dst.Fill(0xEE);
        EXPECT_EQ(row.copied, ZOLBufferUtil::ZOLBufferCopy(&dst.buffer, &src.buffer))
            << row.format[0] << " to " << row.format[1];
        for (int p = 0; p < 2; ++p) {
            for (size_t i = 0; i < dst.planes[p].size(); ++i) {
                const size_t r = i / row.stride[1], c = i % row.stride[1];
                const bool payload =
                    r < size_t(p == 0 ? row.rows0 : row.rows1) && c < size_t(row.rowBytes);
                ASSERT_EQ(payload ? src.planes[p][r * row.stride[0] + c] : 0xEE, dst.planes[p][i])
                    << row.format[0] << " to " << row.format[1] << ", plane " << p << " byte " << i;
            }
        }
    }
}

// The raw-file geometry of every format code for an 8-wide image: bytes per row of each plane
// (plane 1 has height / 2 rows), and whether dump and read-back handle the format at all.
struct FormatCase {
    uint32_t format;
    int rowBytes0, rowBytes1;
    bool dumped, readBack;
};

const FormatCase kFormats[] = {
    {0, 8, 8, true, true},    {1, 8, 8, true, true},    {2, 0, 0, false, false},
    {3, 12, 0, true, true},   {4, 14, 0, true, false},  {5, 16, 0, true, true},
    {6, 16, 16, true, true},  {7, 8, 0, true, true},    {8, 16, 0, true, false},
    {9, 16, 0, true, false},  {10, 16, 0, true, false}, {11, 16, 0, true, false},
    {12, 16, 0, true, false}, {13, 16, 0, true, false}, {14, 16, 0, true, false},
    {15, 0, 0, false, false}, {16, 0, 0, false, false}, {0xFFFFFFFFu, 0, 0, false, false}};

class BufferFile : public ::testing::TestWithParam<FormatCase> {
protected:
    void SetUp() override { ZOLToolsLogLevel = 0; }  // the format line is written all the same
    // Error lines "unknow format: <format>".
    size_t UnknownFormatLines() const {
        return log_.Matching(ANDROID_LOG_ERROR,
                             "unknow format: " + std::to_string(int(GetParam().format)));
    }
    zoltest::TempDir dir_;
    std::string path_ = dir_ / "frame.yuv";
    zoltest::LogCapture log_;
};

TEST_P(BufferFile, DumpWritesThePayloadRowsOfEachPlane) {
    const FormatCase c = GetParam();
    for (uint32_t height : {5u, 1u}) {
        TestImage image(c.format, 8, height, 16, 80, 3);
        EXPECT_TRUE(ZOLBufferUtil::ZOLBufferDump(&image.buffer, path_.c_str()));
        EXPECT_EQ(c.dumped
                      ? image.Rows(0, height, c.rowBytes0) + image.Rows(1, height / 2, c.rowBytes1)
                      : "",
                  zoltest::ReadFile(path_));
    }
    EXPECT_EQ(c.dumped ? 0u : 2u, UnknownFormatLines());
}

TEST_P(BufferFile, ReadFillsThePayloadRowsAndClearsEightBytes) {
    const FormatCase c = GetParam();
    const TestImage source(c.format, 8, 5, 16, 80, 50);  // the file holds more than any needs
    const std::string contents = source.Rows(0, 5, 16) + source.Rows(1, 5, 16);
    dir_.WriteFile("frame.yuv", contents);
    TestImage image(c.format, 8, 5, 16, 80, 0);
    image.Fill(0xAA);
    ASSERT_TRUE(ZOLBufferUtil::ZOLReadBuffer(&image.buffer, &path_[0]));
    std::vector<uint8_t> expected[2] = {std::vector<uint8_t>(80, 0xAA),
                                        std::vector<uint8_t>(80, 0xAA)};
    size_t offset = 0;
    for (int p = 0; p < 2; ++p) {
        std::fill(expected[p].begin(), expected[p].begin() + 8, 0);
        const int rows = !c.readBack ? 0 : p == 0 ? 5 : c.rowBytes1 > 0 ? 2 : 0;
        for (int r = 0; r < rows; ++r) {
            for (int b = 0; b < (p == 0 ? c.rowBytes0 : c.rowBytes1); ++b) {
                expected[p][r * 16 + b] = static_cast<uint8_t>(contents[offset++]);
            }
        }
    }
    EXPECT_EQ(expected[0], image.planes[0]);
    EXPECT_EQ(expected[1], image.planes[1]);
    EXPECT_EQ(c.readBack ? 0u : 1u, UnknownFormatLines());
}

INSTANTIATE_TEST_SUITE_P(EveryFormat, BufferFile, ::testing::ValuesIn(kFormats),
                         [](const ::testing::TestParamInfo<FormatCase>& info) {
                             return "format" + std::to_string(info.param.format);
                         });

TEST(BufferFileEdges, ShortMissingAndUnalignedFiles) {
    zoltest::TempDir dir;
    zoltest::LogCapture log;
    // 2.5 rows of a 4-wide plane 0: row 2 gets what was read, plane 1 nothing but its clearing.
    std::string path = dir.WriteFile("short.yuv", "ABCDEFGHIJ");
    TestImage image(0, 4, 4, 4, 16, 0);
    image.Fill('.');
    ASSERT_TRUE(ZOLBufferUtil::ZOLReadBuffer(&image.buffer, &path[0]));
    EXPECT_EQ("ABCDEFGH", std::string(image.planes[0].begin(), image.planes[0].begin() + 8));
    EXPECT_EQ("....", std::string(image.planes[0].begin() + 12, image.planes[0].end()));
    EXPECT_EQ(std::string(8, '\0') + "........",
              std::string(image.planes[1].begin(), image.planes[1].end()));

    std::string missing = dir / "missing.yuv";
    const std::vector<uint8_t> before = image.planes[0];
    EXPECT_FALSE(ZOLBufferUtil::ZOLBufferDump(&image.buffer, (dir / "no/f").c_str()));
    EXPECT_FALSE(ZOLBufferUtil::ZOLReadBuffer(&image.buffer, &missing[0]));
    EXPECT_EQ(before, image.planes[0]);
    EXPECT_TRUE(log.Lines().empty());

    std::vector<uint8_t> storage(40, 0xFF);  // planes at odd addresses: the clearing copes
    ZOLImageBuffer odd = {};
    odd.format = 2;
    odd.Addr[0] = storage.data() + 1;
    odd.Addr[1] = storage.data() + 21;
    ASSERT_TRUE(ZOLBufferUtil::ZOLReadBuffer(&odd, &path[0]));
    EXPECT_EQ(16, std::count(storage.begin(), storage.end(), 0));
    EXPECT_TRUE(storage[0] == 0xFF && storage[9] == 0xFF && storage[20] == 0xFF &&
                storage[29] == 0xFF);
}

TEST(BufferUtil, PlaneFunctionsMoveOneRowPerStrideAndIgnoreEmptyRequests) {
    uint8_t copied[9] = {};
    const uint8_t src[12] = {1, 2, 3, 9, 4, 5, 6, 9, 7, 8, 9, 9};
    for (int rowBytes : {3, -5}) {
        for (int rows : {3, 0}) {  // only 3 x 3 moves anything
            ZOLBufferUtil::ZOLCopyPlane(copied, const_cast<uint8_t*>(src), rowBytes, rows, 3, 4);
        }
    }
    EXPECT_EQ(std::vector<uint8_t>({1, 2, 3, 4, 5, 6, 7, 8, 9}),
              std::vector<uint8_t>(copied, copied + 9));
    zoltest::TempDir dir;
    const std::string path = dir / "p.raw";
    FILE* file = fopen(path.c_str(), "wb+");
    ASSERT_NE(nullptr, file);
    ZOLBufferUtil::ZOLDumpPlane(file, const_cast<uint8_t*>(src), 3, 3, 4);
    ZOLBufferUtil::ZOLDumpPlane(file, const_cast<uint8_t*>(src), 3, 0, 4);   // no rows
    ZOLBufferUtil::ZOLDumpPlane(file, const_cast<uint8_t*>(src), -1, 2, 4);  // no bytes
    rewind(file);
    uint8_t dst[10] = {};
    ZOLBufferUtil::ZOLReadPlane(file, dst, 3, 0, 3);   // no rows: reads nothing at all
    ZOLBufferUtil::ZOLReadPlane(file, dst, -1, 2, 3);  // no bytes
    EXPECT_EQ(0, ftell(file));
    ZOLBufferUtil::ZOLReadPlane(file, dst, 3, 1, 3);  // a single row is a read too
    ZOLBufferUtil::ZOLReadPlane(file, dst + 3, 3, 2, 3);
    fclose(file);
    EXPECT_EQ(std::string("\1\2\3\4\5\6\7\10\11", 9), zoltest::ReadFile(path));
    EXPECT_EQ(std::vector<uint8_t>({1, 2, 3, 4, 5, 6, 7, 8, 9, 0}),
              std::vector<uint8_t>(dst, dst + 10));
}

TEST(BufferUtilDeathTest, RowSizesThatOverflowAbort) {
    zoltest::TempDir dir;
    std::string path = dir.WriteFile("f.yuv", "");
    uint8_t plane[8] = {};
    ZOLImageBuffer buffer = {};
    buffer.width = 0x20000000;  // x 12 and x 14 overflow, x 2 does not
    buffer.height = 1;
    buffer.Addr[0] = buffer.Addr[1] = plane;
    for (uint32_t format : {3u, 4u}) {
        buffer.format = format;
        EXPECT_DEATH(ZOLBufferUtil::ZOLBufferDump(&buffer, path.c_str()), "overflow");
    }
    buffer.width = 0x80000000u;
    buffer.format = 5;
    EXPECT_DEATH(ZOLBufferUtil::ZOLReadBuffer(&buffer, &path[0]), "overflow");
    ZOLImageBuffer dst = buffer;
    EXPECT_DEATH(ZOLBufferUtil::ZOLBufferCopy(&dst, &buffer), "overflow");
}

// Bare names, depth-first; a subdirectory is entered only when its bare name is found from the
// working directory, so only from inside the walked directory.
TEST(TraveDir, ListsVisibleNamesAndDescendsFromTheWorkingDirectoryOnly) {
    const struct {
        std::vector<std::string> files;
        bool fromInside;
        int depth;
        std::vector<std::string> names;  // after "kept"
    } rows[] = {
        {{"d/.h", "d/x"}, false, 2, {"x"}},
        {{"d/sub/inner", "d/sub/.hidden"}, false, 0, {"sub"}},
        {{"d/sub/inner", "d/sub/.hidden"}, true, 0, {"sub", "inner"}},
        {{"d/sub/inner"}, true, 2, {"sub"}},
        {{"d/a/a/leaf"}, true, 1, {"a", "a"}},  // inside a, "a" is looked up in d again
        {{"d/a/a/leaf"}, true, 0, {"a", "a", "a"}},
        {{"e"}, false, 0, {}},  // no such directory
        {{"d"}, false, 0, {}},  // a file
    };
    char previous[PATH_MAX];
    ASSERT_NE(nullptr, getcwd(previous, sizeof(previous)));
    for (const auto& row : rows) {
        zoltest::TempDir dir;
        for (const std::string& file : row.files) {
            dir.WriteFile(file, "");
        }
        ASSERT_EQ(0, chdir(row.fromInside ? (dir / "d").c_str() : previous));
        std::vector<std::string> names = {"kept"};
        ZOLBufferUtil::traveDir((dir / "d").c_str(), row.depth, names);
        names.erase(names.begin());
        EXPECT_EQ(row.names, names) << row.files[0] << " depth " << row.depth;
        ASSERT_EQ(0, chdir(previous));
    }
}

TEST(GetFileName, PointsBehindTheLastSlash) {
    const struct {
        const char* path;
        size_t offset;
    } rows[] = {{"a/b/c.yuv", 4}, {"frame.yuv", 0}, {"/data/dir/", 10}, {"/x", 1}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.path + row.offset, ZOLGetFileName(row.path)) << row.path;
    }
}

}  // namespace
