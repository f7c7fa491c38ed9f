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
        {{0, 0}, {1100, 1100}, {4, 4}, {1100, 1100}, true, 4, 1100, 2},  // unpadded: one span
        {{0, 0}, {1100, 1100}, {4, 4}, {1104, 1280}, true, 4, 1100, 2},  // long padded rows
        {{0, 0}, {130, 130}, {4, 4}, {136, 160}, true, 4, 130, 2},       // padded, 128 and a tail
        {{0, 0}, {6, 6}, {4, 4}, {6, 8}, true, 4, 6, 2},  // only the destination padded
        {{0, 0}, {6, 6}, {4, 4}, {8, 6}, true, 4, 6, 2},  // only the source padded
        {{1, 7}, {4, 4}, {2, 2}, {8, 8}, true, 2, 4, 1},  // either format 0 or 1 will do
        {{0, 0}, {6, 6}, {4, 3}, {8, 8}, false, 0, 0, 0},
        {{7, 5}, {5, 5}, {3, 3}, {12, 16}, true, 3, 10, 0},  // 16 bits, one plane
        {{5, 5}, {5, 5}, {0, 0}, {12, 16}, true, 0, 0, 0},
        {{5, 1}, {4, 1}, {1, 4}, {8, 8}, true, 1, 4, 0},  // two planes win; one row has no chroma
        {{3, 7}, {4, 4}, {2, 2}, {8, 8}, false, 0, 0, 0},
        {{2, 14}, {4, 4}, {2, 2}, {8, 8}, false, 0, 0, 0},
        {{6, 4}, {4, 4}, {2, 2}, {8, 8}, false, 0, 0, 0},
        {{0, 0}, {1u << 31, 1u << 31}, {2, 2}, {8, 8}, true, 0, 0, 0},  // rows past int: none
    };
    for (const auto& row : rows) {
        // Room for six rows (the tallest image here), and never under 96 bytes.
        const auto bytes = [&](int k) { return std::max<size_t>(96, size_t{row.stride[k]} * 6); };
        TestImage src(row.format[0], row.width[0], row.height[0], row.stride[0], bytes(0), 1);
        TestImage dst(row.format[1], row.width[1], row.height[1], row.stride[1], bytes(1), 0);
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
    TestImage one(0, 4, 2, 4, 96, 1);
    EXPECT_FALSE(ZOLBufferUtil::ZOLBufferCopy(&one.buffer, nullptr));
    EXPECT_FALSE(ZOLBufferUtil::ZOLBufferCopy(nullptr, &one.buffer));
    // A negative row count or row size is an empty plane, not a huge copy; so is a null plane.
    unsigned char from[8] = {1, 1, 1, 1, 1, 1, 1, 1}, to[8] = {};
    ZOLBufferUtil::ZOLCopyPlane(to, from, 4, -1, 4, 4);
    ZOLBufferUtil::ZOLCopyPlane(to, from, -1, 2, 4, 4);
    ZOLBufferUtil::ZOLCopyPlane(to, nullptr, 4, 2, 4, 4);
    ZOLBufferUtil::ZOLCopyPlane(nullptr, from, 4, 2, 4, 4);
    EXPECT_EQ(0, to[0] + to[7]);
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

class BufferFile : public ::testing::TestWithParam<FormatCase> {};

// Dump at two heights (the smaller has a single chroma row), then read back from a file holding
// more than any format needs into planes of 0xAA: each plane's first eight bytes are cleared before
// the rows land. An unknown format writes an empty file, reads nothing, and says so each time.
TEST_P(BufferFile, DumpAndReadMoveThePayloadRowsOfEachPlane) {
    const FormatCase c = GetParam();
    ZOLToolsLogLevel = 0;  // the format line is written all the same
    zoltest::TempDir dir;
    zoltest::LogCapture log;
    std::string path = dir / "frame.yuv";
    const TestImage source(c.format, 8, 5, 16, 80, 50);
    const std::string contents = source.Rows(0, 5, 16) + source.Rows(1, 5, 16);
    for (uint32_t height : {5u, 2u}) {
        TestImage image(c.format, 8, height, 16, 80, 3);
        EXPECT_TRUE(ZOLBufferUtil::ZOLBufferDump(&image.buffer, path.c_str()));
        EXPECT_EQ(c.dumped
                      ? image.Rows(0, height, c.rowBytes0) + image.Rows(1, height / 2, c.rowBytes1)
                      : "",
                  zoltest::ReadFile(path));
        dir.WriteFile("frame.yuv", contents);
        image.Fill(0xAA);
        ASSERT_TRUE(ZOLBufferUtil::ZOLReadBuffer(&image.buffer, &path[0]));
        std::vector<uint8_t> expected[2];
        size_t offset = 0;
        for (int p = 0; p < 2; ++p) {
            const int rowBytes = p == 0 ? c.rowBytes0 : c.rowBytes1;
            const int rows = !c.readBack ? 0 : p == 0 ? height : height / 2;
            expected[p].assign(80, 0xAA);
            std::fill_n(expected[p].begin(), 8, 0);
            for (int r = 0; r < rows; ++r, offset += rowBytes) {
                std::copy_n(&contents[offset], rowBytes, &expected[p][r * 16]);
            }
        }
        EXPECT_TRUE(expected[0] == image.planes[0] && expected[1] == image.planes[1]) << height;
    }
    EXPECT_EQ((c.dumped ? 0u : 2u) + (c.readBack ? 0u : 2u),
              log.Matching(ANDROID_LOG_ERROR, "unknow format: " + std::to_string(int(c.format))));
}

INSTANTIATE_TEST_SUITE_P(EveryFormat, BufferFile, ::testing::ValuesIn(kFormats),
                         [](const ::testing::TestParamInfo<FormatCase>& info) {
                             return "format" + std::to_string(info.param.format);
                         });

// A short file fills what it holds; a missing file or folder fails and touches nothing; rows
// past int (a width of 2^31) are empty: nothing written, nothing read. None of it is logged.
TEST(BufferFileEdges, ShortAndMissingFilesAndRowsPastInt) {
    zoltest::TempDir dir;
    zoltest::LogCapture log;
    // 2.5 rows of a 4-wide plane 0: row 2 gets what was read, plane 1 nothing but its clearing.
    std::string path = dir.WriteFile("short.yuv", "ABCDEFGHIJ");
    TestImage image(0, 4, 4, 4, 16, 0);
    image.Fill('.');
    ASSERT_TRUE(ZOLBufferUtil::ZOLReadBuffer(&image.buffer, &path[0]));
    const std::string plane0(image.planes[0].begin(), image.planes[0].end());
    EXPECT_TRUE(plane0.substr(0, 8) == "ABCDEFGH" && plane0.substr(12) == "....") << plane0;
    EXPECT_EQ(std::string(8, '\0') + "........", image.Rows(1, 4, 4));

    std::string missing = dir / "missing.yuv";
    const std::vector<uint8_t> before = image.planes[0];
    EXPECT_FALSE(ZOLBufferUtil::ZOLBufferDump(&image.buffer, (dir / "no/f").c_str()));
    EXPECT_FALSE(ZOLBufferUtil::ZOLReadBuffer(&image.buffer, &missing[0]));
    EXPECT_EQ(before, image.planes[0]);

    image.buffer.width = 1u << 31;
    image.Fill('.');
    EXPECT_TRUE(ZOLBufferUtil::ZOLBufferDump(&image.buffer, missing.c_str()));
    EXPECT_EQ("", zoltest::ReadFile(missing));
    ASSERT_TRUE(ZOLBufferUtil::ZOLReadBuffer(&image.buffer, &path[0]));
    EXPECT_EQ(std::string(8, '\0') + "........", image.Rows(0, 4, 4));
    EXPECT_TRUE(log.Lines().empty());
}

// The plane functions move one row per stride; empty requests (no rows, no bytes, no plane,
// no file, no path) move nothing and crash nothing.
TEST(BufferFileEdges, PlaneFunctionsMoveOneRowPerStrideAndIgnoreEmptyRequests) {
    const uint8_t src[12] = {1, 2, 3, 9, 4, 5, 6, 9, 7, 8, 9, 9};
    zoltest::TempDir dir;
    const std::string path = dir / "p.raw";
    FILE* file = fopen(path.c_str(), "wb+");
    ASSERT_NE(nullptr, file);
    uint8_t* plane = const_cast<uint8_t*>(src);
    ZOLBufferUtil::ZOLDumpPlane(file, plane, 3, 3, 4);
    ZOLBufferUtil::ZOLDumpPlane(file, plane, 3, 0, 4);
    ZOLBufferUtil::ZOLDumpPlane(file, plane, -1, 2, 4);
    ZOLBufferUtil::ZOLDumpPlane(file, nullptr, 3, 2, 4);
    ZOLBufferUtil::ZOLDumpPlane(nullptr, plane, 3, 2, 4);
    rewind(file);
    uint8_t dst[10] = {};
    ZOLBufferUtil::ZOLReadPlane(file, dst, 3, 0, 3);
    ZOLBufferUtil::ZOLReadPlane(file, dst, -1, 2, 3);
    ZOLBufferUtil::ZOLReadPlane(file, nullptr, 3, 2, 3);
    ZOLBufferUtil::ZOLReadPlane(nullptr, dst, 3, 2, 3);
    EXPECT_EQ(0, ftell(file));
    ZOLBufferUtil::ZOLReadPlane(file, dst, 3, 1, 3);  // a single row is a read too
    ZOLBufferUtil::ZOLReadPlane(file, dst + 3, 3, 2, 3);
    fclose(file);
    EXPECT_EQ(std::string("\1\2\3\4\5\6\7\10\11", 9), zoltest::ReadFile(path));
    EXPECT_EQ(std::vector<uint8_t>({1, 2, 3, 4, 5, 6, 7, 8, 9, 0}),
              std::vector<uint8_t>(dst, dst + 10));
    TestImage image(0, 4, 4, 4, 16, 0);
    EXPECT_FALSE(ZOLBufferUtil::ZOLBufferDump(&image.buffer, nullptr));
    EXPECT_FALSE(ZOLBufferUtil::ZOLBufferDump(nullptr, path.c_str()));
}

TEST(BufferUtilDeathTest, RowSizesThatOverflowAbort) {
    zoltest::TempDir dir;
    std::string path = dir.WriteFile("f.yuv", "");
    uint8_t plane[8] = {};
    // Width x 12 and x 14 overflow, x 2 does not; then a width whose x 2 does.
    ZOLImageBuffer buffer = {3, 0x20000000, 1, 0, 1, 0, {plane, plane}, {}, nullptr, nullptr};
    EXPECT_DEATH(ZOLBufferUtil::ZOLBufferDump(&buffer, path.c_str()), "overflow");
    buffer.format = 4;
    EXPECT_DEATH(ZOLBufferUtil::ZOLBufferDump(&buffer, path.c_str()), "overflow");
    buffer.format = 5;
    buffer.width = 0x80000000u;
    EXPECT_DEATH(ZOLBufferUtil::ZOLReadBuffer(&buffer, &path[0]), "overflow");
    ZOLImageBuffer dst = buffer;
    EXPECT_DEATH(ZOLBufferUtil::ZOLBufferCopy(&dst, &buffer), "overflow");
}

// Bare names, depth-first; a subdirectory is entered only when its bare name is found from the
// working directory, so only from inside the walked directory. (Hidden names and a missing
// directory: the simulation's replay tests.)
TEST(TraveDir, ListsVisibleNamesAndDescendsFromTheWorkingDirectoryOnly) {
    const struct {
        std::vector<std::string> files;
        bool fromInside;
        int depth;
        std::vector<std::string> names;  // after "kept"
    } rows[] = {
        {{"d/sub/inner", "d/sub/.hidden"}, false, 0, {"sub"}},
        {{"d/sub/inner", "d/sub/.hidden"}, true, 0, {"sub", "inner"}},
        {{"d/sub/inner"}, true, 2, {"sub"}},
        {{"d/a/a/leaf"}, true, 1, {"a", "a"}},  // inside a, "a" is looked up in d again
        {{"d/a/a/leaf"}, true, 0, {"a", "a", "a"}},
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
        const int result = ZOLBufferUtil::traveDir((dir / "d").c_str(), row.depth, names);
        EXPECT_EQ(row.files[0] == "d" ? -1 : 0, result);  // -1: not a directory it can open
        names.erase(names.begin());
        EXPECT_EQ(row.names, names) << row.files[0] << " depth " << row.depth;
        ASSERT_EQ(0, chdir(previous));
    }
}

TEST(GetFileName, PointsBehindTheLastSlash) {
    for (const auto& [path, offset] : {std::pair("a/b/c.yuv", 4), std::pair("frame.yuv", 0),
                                       std::pair("/data/dir/", 10), std::pair("/x", 1)}) {
        EXPECT_EQ(path + offset, ZOLGetFileName(path)) << path;
    }
}

}  // namespace
