// Replaying saved folders: listing order and wrap-around, the dispatch by name, and bad input
// (stray entries, garbage or truncated records, frames and databases of the wrong size, a
// vector shorter than the saved frames). Run under ASan, these also show that nothing is read
// or written out of bounds: every plane and block below is an exactly sized heap block.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "algosim_test_support.h"
#include "zolalgosimulation.h"
#include "zoltest.h"

namespace {

using algosimtest::Frame;

constexpr const char* kNoData = "[algorithm simulation]: read data don't exit.";
constexpr const char* kNoFolder = "[algorithm simulation]: Current directory don't exit!";

std::string Records(const std::vector<ZOLImageBuffer>& buffers) {
    std::string out;
    for (const ZOLImageBuffer& b : buffers) {
        const uint32_t u[6] = {b.format,      b.width,       b.height,
                               b.planeStride, b.sliceHeight, b.numberOfPlanes};
        out.append(reinterpret_cast<const char*>(u), sizeof(u));
        out.append(reinterpret_cast<const char*>(b.fd), sizeof(b.fd));
    }
    return out;
}

class Replay : public ::testing::Test {
protected:
    Replay() { root_.MakeDir(algosimtest::kBaseFolder); }

    // Writes a saved folder by hand: the request records of `frames`, each frame's payload
    // painted with seed + index, and a database.
    void WriteFolder(const std::string& name, const std::vector<const Frame*>& frames,
                     uint32_t seed, const std::string& database) {
        const std::string dir = std::string(algosimtest::kBaseFolder) + name + "/";
        std::vector<ZOLImageBuffer> records;
        for (size_t i = 0; i < frames.size(); ++i) {
            const ZOLImageBuffer& b = frames[i]->buffer;
            records.push_back(b);
            root_.WriteFile(dir + "inputFrameInfo_" + std::to_string(b.width) + "x" +
                                std::to_string(b.height) + "_" + std::to_string(i) + "_.yuv",
                            Frame::Payload(b.width, b.height, seed + i));
        }
        root_.WriteFile(dir + "requestInfo.bin", Records(records));
        root_.WriteFile(dir + "database.bin", database);
    }

    zoltest::DeviceRoot root_;
    ZOLAlgoSimulation simulation_;
};

TEST_F(Replay, FoldersAreReplayedInListingOrderAndWrapAround) {
    Frame frame(8, 4, 8, 4);
    WriteFolder("A", {&frame}, 10, "database A");
    WriteFolder("B", {&frame}, 20, "database B");
    const auto order = algosimtest::StreamOrder(root_.Resolve(algosimtest::kBaseFolder));
    ASSERT_EQ(2u, order.size());

    zoltest::LogCapture log;
    for (int k = 0; k < 3; ++k) {
        Frame into(8, 4, 8, 4);
        std::vector<ZOLImageBuffer> buffers = {into.buffer};
        std::string db(10, '\0');
        ASSERT_TRUE(simulation_.readSimulationInfo(buffers, algosimtest::AsDatabase(db), 10));
        const std::string& name = order[k % 2];
        EXPECT_EQ("database " + name, db);
        EXPECT_EQ("", into.Mismatch(name == "A" ? 10 : 20)) << k;
        EXPECT_TRUE(log.Contains(
            "[algorithm simulation]: " + root_.Resolve(algosimtest::kBaseFolder) + name + "/"));
    }
    EXPECT_EQ(2u, log.Count("[algorithm simulation]: Algorithmtion path directory size=2, "
                            "algoFolderNamesIndex=0"));
    EXPECT_EQ(1u, log.Count("directory size=2, algoFolderNamesIndex=1"));
    EXPECT_TRUE(log.Contains(
        "[algorithm simulation]: read data directory: " + root_.Resolve(algosimtest::kBaseFolder) +
        order[0] + "/database.bin, file name: database.bin"));
}

TEST_F(Replay, AFourthFrameFallsToTheLastBranch) {
    Frame f0(8, 4, 8, 4), f1(10, 2, 12, 2), f2(8, 2, 8, 2), f3(8, 2, 8, 2);
    WriteFolder("A", {&f0, &f1, &f2, &f3}, 1, "db");
    Frame i0(8, 4, 8, 4), i1(10, 2, 12, 2), i2(8, 2, 8, 2), i3(8, 2, 8, 2);
    std::vector<ZOLImageBuffer> buffers = {i0.buffer, i1.buffer, i2.buffer, i3.buffer};
    std::string db = "..";
    zoltest::LogCapture log;
    ASSERT_TRUE(simulation_.readSimulationInfo(buffers, algosimtest::AsDatabase(db), 2));
    EXPECT_EQ("", i0.Mismatch(1));
    EXPECT_EQ("", i1.Mismatch(2));
    EXPECT_EQ("", i2.Mismatch(3));
    EXPECT_EQ(std::vector<uint8_t>(i3.planes[0].size(), algosimtest::kUntouched), i3.planes[0]);
    EXPECT_EQ(1u, log.Count(kNoData));
    EXPECT_EQ("db", db);
}

TEST_F(Replay, AVectorShorterThanTheSavedFramesReadsOnlyWhatItHolds) {
    Frame f0(8, 4, 8, 4), f1(8, 4, 8, 4), f2(8, 4, 8, 4);
    WriteFolder("A", {&f0, &f1, &f2}, 1, "db");
    Frame only(8, 4, 8, 4);
    std::vector<ZOLImageBuffer> buffers = {only.buffer};
    zoltest::LogCapture log;
    ASSERT_TRUE(simulation_.readSimulationInfo(buffers, nullptr, 0));
    EXPECT_EQ(1u, buffers.size());
    EXPECT_EQ("", only.Mismatch(1));
    EXPECT_EQ(2u, log.Count(kNoData));
    EXPECT_EQ(1u, log.Count("read RequestBuffer size = 8."));

    std::vector<ZOLImageBuffer> none;
    log.Clear();
    ASSERT_TRUE(simulation_.readSimulationInfo(none, nullptr, 0));
    EXPECT_EQ(3u, log.Count(kNoData));
}

TEST_F(Replay, FramesShorterOrLongerThanTheGeometryStayWithinThePlanes) {
    const std::string dir = std::string(algosimtest::kBaseFolder) + "A/";
    // 8 x 4 NV21: 32 + 16 payload bytes. One file far too long, one cut inside plane 0.
    root_.WriteFile(dir + "inputFrameInfo_8x4_0_.yuv",
                    Frame::Payload(8, 4, 5) + std::string(999, 'x'));
    root_.WriteFile(dir + "inputFrameInfo_8x4_1_.yuv", Frame::Payload(8, 4, 6).substr(0, 20));
    Frame long0(8, 4, 8, 4), short1(8, 4, 8, 4);
    std::vector<ZOLImageBuffer> buffers = {long0.buffer, short1.buffer};
    ASSERT_TRUE(simulation_.readSimulationInfo(buffers, nullptr, 0));
    EXPECT_EQ("", long0.Mismatch(5));
    // Rows 0 and 1 arrive, row 2 gets 4 of its 8 bytes or none; the rest stays, apart from
    // the eight bytes cleared at the start of plane 1.
    Frame expected(8, 4, 8, 4);
    expected.Paint(6);
    EXPECT_EQ(std::vector<uint8_t>(expected.planes[0].begin(), expected.planes[0].begin() + 16),
              std::vector<uint8_t>(short1.planes[0].begin(), short1.planes[0].begin() + 16));
    EXPECT_EQ(std::vector<uint8_t>(8, algosimtest::kUntouched),
              std::vector<uint8_t>(short1.planes[0].begin() + 24, short1.planes[0].end()));
    EXPECT_EQ(std::vector<uint8_t>(8, 0),
              std::vector<uint8_t>(short1.planes[1].begin(), short1.planes[1].begin() + 8));
    EXPECT_EQ(std::vector<uint8_t>(8, algosimtest::kUntouched),
              std::vector<uint8_t>(short1.planes[1].begin() + 8, short1.planes[1].end()));
}

TEST_F(Replay, RecordsThatWouldReachPastTheCallersPlanesSkipTheFrame) {
    // A request file whose records do not match the caller's planes, listed before the frame
    // file: the frame is then read with those records. The frame file's name is chosen so
    // that the directory stream (hash order on most file systems) lists it second.
    const std::string dir = std::string(algosimtest::kBaseFolder) + "A/";
    root_.WriteFile(dir + "requestInfo.bin", "");
    std::string frameName;
    for (int k = 0; k < 64 && frameName.empty(); ++k) {
        const std::string name = "frame" + std::to_string(k) + "_0_.yuv";
        root_.WriteFile(dir + name, Frame::Payload(8, 4, 1) + std::string(4096, 'x'));
        const auto order = algosimtest::StreamOrder(root_.Resolve(dir));
        if (order.size() == 2 && order[0] == "requestInfo.bin") {
            frameName = name;
        } else {
            zoltest::RemoveTree(root_.Resolve(dir + name));
        }
    }
    ASSERT_FALSE(frameName.empty());

    // Larger than the caller's planes, a stride that jumps past them, a negative stride, a
    // row size that overflows, a second plane the caller's format does not have.
    Frame shape(8, 4, 8, 4);
    std::vector<ZOLImageBuffer> bad(5, shape.buffer);
    bad[0].height = 40;
    bad[1].planeStride = 4096;
    bad[2].planeStride = static_cast<uint32_t>(-8);
    bad[3].format = 5;
    bad[3].width = 0x80000000u;
    bad[4].format = 6;
    bad[4].width = 4;
    for (const ZOLImageBuffer& record : bad) {
        root_.WriteFile(dir + "requestInfo.bin", Records({record}));
        Frame into(8, 4, 8, 4);
        into.buffer.format = record.format == 6 ? 7 : 0;  // one plane of 8 x 4 bytes
        std::vector<ZOLImageBuffer> buffers = {into.buffer};
        zoltest::LogCapture log;
        ASSERT_TRUE(simulation_.readSimulationInfo(buffers, nullptr, 0));
        EXPECT_EQ(record.planeStride, buffers[0].planeStride);
        EXPECT_EQ(std::vector<uint8_t>(32, algosimtest::kUntouched), into.planes[0]);
        EXPECT_EQ(std::vector<uint8_t>(16, algosimtest::kUntouched), into.planes[1]);
        EXPECT_EQ(1u, log.Count(kNoData));
    }

    // Records that fit (here: fewer rows) are read with.
    ZOLImageBuffer smaller = shape.buffer;
    smaller.height = 2;
    root_.WriteFile(dir + "requestInfo.bin", Records({smaller}));
    Frame into(8, 4, 8, 4);
    std::vector<ZOLImageBuffer> buffers = {into.buffer};
    ASSERT_TRUE(simulation_.readSimulationInfo(buffers, nullptr, 0));
    const std::string payload = Frame::Payload(8, 4, 1);
    EXPECT_EQ(payload.substr(0, 16),
              std::string(into.planes[0].begin(), into.planes[0].begin() + 16));
    EXPECT_EQ(payload.substr(16, 8),
              std::string(into.planes[1].begin(), into.planes[1].begin() + 8));
}

TEST_F(Replay, GarbageAndTruncatedRequestFilesDoNotCrash) {
    Frame saved(8, 4, 8, 4);
    WriteFolder("A", {&saved, &saved, &saved}, 1, "");
    const std::string dir = std::string(algosimtest::kBaseFolder) + "A/";
    std::string garbage;
    for (int i = 0; i < 150; ++i) {
        garbage.push_back(static_cast<char>(i * 37 + 11));
    }
    for (size_t size : {size_t{150}, size_t{57}, size_t{3}, size_t{0}}) {
        root_.WriteFile(dir + "requestInfo.bin", garbage.substr(0, size));
        Frame a(8, 4, 8, 4), b(8, 4, 8, 4), c(8, 4, 8, 4);
        std::vector<ZOLImageBuffer> buffers = {a.buffer, b.buffer, c.buffer};
        EXPECT_TRUE(simulation_.readSimulationInfo(buffers, nullptr, 0)) << size;
        // Whatever the records say, the planes stay the caller's.
        EXPECT_EQ(a.buffer.Addr[0], buffers[0].Addr[0]);
        EXPECT_EQ(c.buffer.Addr[1], buffers[2].Addr[1]);
    }
}

TEST_F(Replay, StrayEntriesInTheBaseFolder) {
    // A stray folder replays as nothing but unknown names.
    root_.WriteFile(std::string(algosimtest::kBaseFolder) + "notes/readme.txt", "x");
    root_.WriteFile(std::string(algosimtest::kBaseFolder) + ".hidden", "not listed");
    Frame into(8, 4, 8, 4);
    std::vector<ZOLImageBuffer> buffers = {into.buffer};
    zoltest::LogCapture log;
    ASSERT_TRUE(simulation_.readSimulationInfo(buffers, nullptr, 0));
    EXPECT_EQ(1u, log.Count(kNoData));
    EXPECT_EQ(1u, log.Count("directory size=1, algoFolderNamesIndex=0"));
    EXPECT_EQ(std::vector<uint8_t>(32, algosimtest::kUntouched), into.planes[0]);

    // A stray file cannot be opened as a folder: false, and the index stays on it.
    zoltest::RemoveTree(root_.Resolve(std::string(algosimtest::kBaseFolder) + "notes"));
    root_.WriteFile(std::string(algosimtest::kBaseFolder) + "stray.txt", "x");
    log.Clear();
    EXPECT_FALSE(simulation_.readSimulationInfo(buffers, nullptr, 0));
    EXPECT_FALSE(simulation_.readSimulationInfo(buffers, nullptr, 0));
    EXPECT_EQ(2u, log.Count(kNoFolder));
    EXPECT_EQ(2u, log.Count("directory size=1, algoFolderNamesIndex=0"));
}

TEST_F(Replay, FromInsideTheBaseFolderTheListingTakesInTheSavedFiles) {
    // The listing looks names up from the working directory: inside the base folder it finds
    // the saved folders and lists their files too, which then cannot be replayed as folders.
    Frame saved(8, 4, 8, 4);
    WriteFolder("A", {&saved}, 1, "db");
    char previous[4096];
    ASSERT_NE(nullptr, getcwd(previous, sizeof(previous)));
    ASSERT_EQ(0, chdir(root_.Resolve(algosimtest::kBaseFolder).c_str()));

    Frame into(8, 4, 8, 4);
    std::vector<ZOLImageBuffer> buffers = {into.buffer};
    std::string db = "..";
    zoltest::LogCapture log;
    const bool first = simulation_.readSimulationInfo(buffers, algosimtest::AsDatabase(db), 2);
    const bool second = simulation_.readSimulationInfo(buffers, algosimtest::AsDatabase(db), 2);
    ASSERT_EQ(0, chdir(previous));

    EXPECT_TRUE(first);
    EXPECT_EQ("db", db);
    EXPECT_EQ("", into.Mismatch(1));
    EXPECT_EQ(1u, log.Count("directory size=4, algoFolderNamesIndex=0"));
    EXPECT_FALSE(second);
    EXPECT_EQ(1u, log.Count("directory size=4, algoFolderNamesIndex=1"));
    EXPECT_EQ(1u, log.Count(kNoFolder));
}

TEST_F(Replay, NothingToReplayFailsAndKeepsTheIndex) {
    Frame into(8, 4, 8, 4);
    std::vector<ZOLImageBuffer> buffers = {into.buffer};
    zoltest::LogCapture log;
    EXPECT_FALSE(simulation_.readSimulationInfo(buffers, nullptr, 0));  // empty base folder
    EXPECT_TRUE(log.Contains(kNoFolder));

    // Three folders, two replays: index 2. Then two folders vanish: the index is past the list.
    Frame saved(8, 4, 8, 4);
    for (const char* name : {"A", "B", "C"}) {
        WriteFolder(name, {&saved}, 1, "");
    }
    ASSERT_TRUE(simulation_.readSimulationInfo(buffers, nullptr, 0));
    ASSERT_TRUE(simulation_.readSimulationInfo(buffers, nullptr, 0));
    zoltest::RemoveTree(root_.Resolve(std::string(algosimtest::kBaseFolder) + "A"));
    zoltest::RemoveTree(root_.Resolve(std::string(algosimtest::kBaseFolder) + "B"));
    log.Clear();
    EXPECT_FALSE(simulation_.readSimulationInfo(buffers, nullptr, 0));
    EXPECT_TRUE(log.Contains("directory size=1, algoFolderNamesIndex=2"));
    EXPECT_TRUE(log.Contains(kNoFolder));

    // Initialize starts again from the first folder.
    simulation_.Initialize();
    EXPECT_TRUE(simulation_.readSimulationInfo(buffers, nullptr, 0));

    // No base folder at all.
    zoltest::RemoveTree(root_.Resolve(algosimtest::kBaseFolder));
    EXPECT_FALSE(simulation_.readSimulationInfo(buffers, nullptr, 0));
}

}  // namespace
