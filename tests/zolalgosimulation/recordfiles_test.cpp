// requestInfo.bin and database.bin: layout, short and long files, the logged counts.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "algosim_test_support.h"
#include "zolalgosimulation.h"
#include "zoltest.h"

namespace {

using algosimtest::AsDatabase;

ZOLImageBuffer Record(uint32_t seed) {
    ZOLImageBuffer b = {};
    b.format = seed;
    b.width = 4000 + seed;
    b.height = 3000 + seed;
    b.planeStride = 4096 + seed;
    b.sliceHeight = 3072 + seed;
    b.numberOfPlanes = 2;
    for (int i = 0; i < 4; ++i) {
        b.fd[i] = static_cast<int>(seed * 10) - i;  // negative ones too
    }
    b.Addr[0] = reinterpret_cast<void*>(uintptr_t{0x1000} * (seed + 1));
    b.pNativeHandle = reinterpret_cast<void*>(uintptr_t{0x77});
    return b;
}

uint32_t U32At(const std::string& s, size_t offset) {
    uint32_t v;
    memcpy(&v, s.data() + offset, 4);
    return v;
}

class RecordFiles : public ::testing::Test {
protected:
    zoltest::DeviceRoot root_;
    ZOLAlgoSimulation simulation_;
    std::string path_ = root_.path() + "/requestInfo.bin";
};

TEST_F(RecordFiles, RequestFileHoldsFortyBytesPerRecordInFieldOrder) {
    std::vector<ZOLImageBuffer> buffers = {Record(1), Record(2), Record(3)};
    ASSERT_TRUE(simulation_.writerRequestBuffer(buffers, &path_[0]));
    const std::string file = zoltest::ReadFile(path_);
    ASSERT_EQ(120u, file.size());
    for (size_t i = 0; i < 3; ++i) {
        const ZOLImageBuffer& b = buffers[i];
        const size_t at = i * 40;
        EXPECT_EQ(b.format, U32At(file, at + 0));
        EXPECT_EQ(b.width, U32At(file, at + 4));
        EXPECT_EQ(b.height, U32At(file, at + 8));
        EXPECT_EQ(b.planeStride, U32At(file, at + 12));
        EXPECT_EQ(b.sliceHeight, U32At(file, at + 16));
        EXPECT_EQ(b.numberOfPlanes, U32At(file, at + 20));
        for (int f = 0; f < 4; ++f) {
            EXPECT_EQ(b.fd[f], static_cast<int32_t>(U32At(file, at + 24 + 4 * f)));
        }
    }

    std::vector<ZOLImageBuffer> none;
    ASSERT_TRUE(simulation_.writerRequestBuffer(none, &path_[0]));
    EXPECT_EQ("", zoltest::ReadFile(path_));
}

TEST_F(RecordFiles, ReadingFillsAsManyRecordsAsTheVectorHoldsAndKeepsAddresses) {
    std::vector<ZOLImageBuffer> saved = {Record(1), Record(2), Record(3)};
    ASSERT_TRUE(simulation_.writerRequestBuffer(saved, &path_[0]));

    // Two records: only the first 80 bytes are read.
    std::vector<ZOLImageBuffer> two = {Record(7), Record(8)};
    zoltest::LogCapture log;
    ASSERT_TRUE(simulation_.readRequestBuffer(two, &path_[0]));
    for (size_t i = 0; i < 2; ++i) {
        ZOLImageBuffer expected = saved[i];
        expected.Addr[0] = Record(7 + i).Addr[0];  // addresses stay the reader's
        EXPECT_EQ(0, memcmp(&expected, &two[i], sizeof(expected))) << i;
    }
    EXPECT_EQ(2u, log.Count("[algorithm simulation]: read RequestBuffer size = 8."));

    // Four records: the fourth gets nothing and logs a count of 0.
    std::vector<ZOLImageBuffer> four = {Record(7), Record(7), Record(7), Record(9)};
    log.Clear();
    ASSERT_TRUE(simulation_.readRequestBuffer(four, &path_[0]));
    const ZOLImageBuffer untouched = Record(9);
    EXPECT_EQ(0, memcmp(&four[3], &untouched, sizeof(untouched)));
    EXPECT_EQ(saved[2].width, four[2].width);
    EXPECT_EQ(std::vector<std::string>({"[algorithm simulation]: read RequestBuffer size = 8.",
                                        "[algorithm simulation]: read RequestBuffer size = 8.",
                                        "[algorithm simulation]: read RequestBuffer size = 8.",
                                        "[algorithm simulation]: read RequestBuffer size = 0."}),
              log.Texts());
}

TEST_F(RecordFiles, TruncatedRequestFileCountsCompleteItemsOnly) {
    std::vector<ZOLImageBuffer> saved = {Record(1), Record(2)};
    ASSERT_TRUE(simulation_.writerRequestBuffer(saved, &path_[0]));
    // The whole first record and 30 bytes of the second: 12 + 4 + 4 + 4 + 4 = 28 bytes make 5
    // complete items, the sixth is cut.
    root_.WriteFile("/requestInfo.bin", zoltest::ReadFile(path_).substr(0, 70));
    std::vector<ZOLImageBuffer> read = {Record(5), Record(5)};
    zoltest::LogCapture log;
    ASSERT_TRUE(simulation_.readRequestBuffer(read, &path_[0]));
    EXPECT_EQ(saved[0].width, read[0].width);
    EXPECT_EQ(saved[1].numberOfPlanes, read[1].numberOfPlanes);
    EXPECT_EQ(Record(5).fd[2], read[1].fd[2]);
    EXPECT_EQ(Record(5).fd[3], read[1].fd[3]);
    EXPECT_TRUE(log.Contains("read RequestBuffer size = 5."));
}

TEST_F(RecordFiles, UnopenableRequestFilesFailWithTheirLines) {
    std::vector<ZOLImageBuffer> buffers = {Record(1)};
    std::string bad = root_.path() + "/missing/requestInfo.bin";
    zoltest::LogCapture log;
    EXPECT_FALSE(simulation_.writerRequestBuffer(buffers, &bad[0]));
    EXPECT_FALSE(simulation_.readRequestBuffer(buffers, &bad[0]));
    const ZOLImageBuffer untouched = Record(1);
    EXPECT_EQ(0, memcmp(&buffers[0], &untouched, sizeof(untouched)));
    EXPECT_EQ(std::vector<std::string>({"[algorithm simulation]: Open file failed.",
                                        "[algorithm simulation]: read data don't exit."}),
              log.Texts());
}

TEST_F(RecordFiles, DatabaseIsWrittenByteForByteAndReadBackWithItsCount) {
    std::string path = root_.path() + "/database.bin";
    std::string block = algosimtest::DatabaseFor(4, 37);
    simulation_.dumpDatabase(AsDatabase(block), block.size(), &path[0]);
    EXPECT_EQ(block, zoltest::ReadFile(path));

    // An exactly sized heap block, so that a read past it would be caught.
    std::unique_ptr<char[]> back(new char[37]());
    zoltest::LogCapture log;
    simulation_.readDatabase(reinterpret_cast<ZOLDatabaseBaseStruct*>(back.get()), 37, &path[0]);
    EXPECT_EQ(block, std::string(back.get(), 37));
    EXPECT_TRUE(
        log.Contains("[algorithm simulation]: origin database size = 37, read data size = 1"));
}

TEST_F(RecordFiles, ZeroByteDatabaseGivesAnEmptyFileAndACountOfZero) {
    std::string path = root_.path() + "/database.bin";
    char block[1] = {'x'};
    simulation_.dumpDatabase(reinterpret_cast<ZOLDatabaseBaseStruct*>(block), 0, &path[0]);
    EXPECT_EQ("", zoltest::ReadFile(path));
    zoltest::LogCapture log;
    simulation_.readDatabase(reinterpret_cast<ZOLDatabaseBaseStruct*>(block), 0, &path[0]);
    EXPECT_EQ('x', block[0]);
    EXPECT_TRUE(
        log.Contains("[algorithm simulation]: origin database size = 0, read data size = 0"));
}

TEST_F(RecordFiles, DatabaseFilesOfAnotherSizeStayWithinTheBlock) {
    std::string path = root_.path() + "/database.bin";
    std::unique_ptr<char[]> block(new char[16]);
    memset(block.get(), '.', 16);
    zoltest::LogCapture log;

    root_.WriteFile("/database.bin", std::string(40, 'L'));  // longer: the first 16 bytes
    simulation_.readDatabase(reinterpret_cast<ZOLDatabaseBaseStruct*>(block.get()), 16, &path[0]);
    EXPECT_EQ(std::string(16, 'L'), std::string(block.get(), 16));
    EXPECT_TRUE(log.Contains("origin database size = 16, read data size = 1"));

    root_.WriteFile("/database.bin", "short");  // shorter: not a whole item
    simulation_.readDatabase(reinterpret_cast<ZOLDatabaseBaseStruct*>(block.get()), 16, &path[0]);
    EXPECT_EQ(std::string(11, 'L'), std::string(block.get() + 5, 11));
    EXPECT_TRUE(log.Contains("origin database size = 16, read data size = 0"));
}

TEST_F(RecordFiles, UnopenableDatabaseFilesLogTheirLines) {
    std::string bad = root_.path() + "/missing/database.bin";
    std::string block = "unchanged";
    zoltest::LogCapture log;
    simulation_.dumpDatabase(AsDatabase(block), block.size(), &bad[0]);
    simulation_.readDatabase(AsDatabase(block), block.size(), &bad[0]);
    EXPECT_EQ("unchanged", block);
    EXPECT_EQ(std::vector<std::string>({"[algorithm simulation]: dump database failed.",
                                        "[algorithm simulation]: read database failed."}),
              log.Texts());
}

}  // namespace
