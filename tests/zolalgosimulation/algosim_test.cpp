// Saving and replaying algorithm inputs, in save mode (the property unset), and with the mode
// off (SimulationOff, in binaries of their own: CMakeLists.txt). Every TEST is a process of its
// own. The save and replay of a real wrapper across two processes is the example's test
// (tests/tools).
#include <gtest/gtest.h>

#include <android/log.h>
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "zolalgosimulation.h"
#include "zolalgosimulation/internal/zolalgosimulationinternal.h"
#include "zoltest.h"

namespace {

using zoltest::ReadFile;
const std::string kBase = "/data/vendor/camera/algosimulation/";
const std::string kSay = "[algorithm simulation]: ";

ZOLDatabaseBaseStruct* Db(std::string& block) {
    return reinterpret_cast<ZOLDatabaseBaseStruct*>(&block[0]);
}

// A device root with the base folder, or with only `dir` of its path.
struct SimRoot : zoltest::DeviceRoot {
    explicit SimRoot(const std::string& dir = kBase) { MakeDir(dir); }
    std::string base() const { return Resolve(kBase); }
};

// Visible entries of a directory in directory-stream order, as a replay lists them.
std::vector<std::string> Listed(const std::string& path) {
    std::vector<std::string> names;
    const zol::UniqueDir dir(opendir(path.c_str()));
    while (const dirent* entry = readdir(dir.get())) {
        if (entry->d_name[0] != '.') {
            names.push_back(entry->d_name);
        }
    }
    return names;
}

// NV21 images of the given sizes, all `stride` bytes a row, each with its own pattern
// (`seed` onwards), and the request's records of them.
struct Request {
    Request(std::vector<std::pair<uint32_t, uint32_t>> sizes, uint32_t stride, int seed) {
        for (const auto& size : sizes) {
            images.push_back(std::make_unique<zoltest::TestImage>(
                0, size.first, size.second, stride, size_t{stride} * size.second, seed++));
            buffers.push_back(images.back()->buffer);
        }
    }
    // What the frame file of image i holds.
    std::string Payload(size_t i) const {
        const int w = static_cast<int>(images[i]->buffer.width);
        const int h = static_cast<int>(images[i]->buffer.height);
        return images[i]->Rows(0, h, w) + images[i]->Rows(1, h / 2, w);
    }
    std::vector<std::unique_ptr<zoltest::TestImage>> images;
    std::vector<ZOLImageBuffer> buffers;
};

// The ten stored fields of a record, in file order.
std::vector<int64_t> Fields(const ZOLImageBuffer& b) {
    return {b.format,         b.width, b.height, b.planeStride, b.sliceHeight,
            b.numberOfPlanes, b.fd[0], b.fd[1],  b.fd[2],       b.fd[3]};
}

// A save makes a folder (0700) below the base folder, which it never makes itself, named from
// the local time to the millisecond. Every buffer is dumped with the first buffer's stride,
// slice height and plane count; only fd0 is synchronised around each dump, and nothing when
// that plane count is 0. The database file holds the block's bytes.
TEST(AlgoSimulation, SaveWritesRecordsFramesWithTheFirstBuffersLayoutAndTheDatabase) {
    EXPECT_EQ(1, ZOLAlgoSimulationMode) << "saving is the default";
    SimRoot root("/data/vendor/camera");
    struct tm local = {7, 5, 9, 3, 2, 126, 0, 0, 0, 0, nullptr};  // 3 March, 09:05:07
    char named[zol::algosim::kFolderPathBytes];
    zol::algosim::SaveFolderPath(named, local, 42999);
    EXPECT_EQ(root.base() + "SimulationIntputInfo_0303090507042/", named);
    ZOLAlgoSimulation sim;
    Request request({{6, 4}, {3, 2}}, 16, 1);
    std::vector<ZOLImageBuffer>& buffers = request.buffers;
    buffers[0].sliceHeight = 5;
    buffers[0].fd[0] = 501;
    buffers[0].fd[1] = 502;
    buffers[1].planeStride = 4;  // dumped 16 bytes a row all the same, as the first buffer is
    buffers[1].fd[0] = 601;
    std::string db = "database";
    EXPECT_FALSE(sim.OnAlgoSimulation(buffers, Db(db), 8)) << "no base folder, and none made";
    EXPECT_TRUE(zoltest::ListDir(root.Resolve("/data/vendor/camera")).empty());
    sim.Initialize();

    zoltest::LogCapture log;
    ASSERT_TRUE(sim.OnAlgoSimulation(buffers, Db(db), 8));
    const std::vector<std::string> names = zoltest::ListDir(root.base());
    ASSERT_EQ(1u, names.size());
    ASSERT_TRUE(zoltest::MatchesPattern(names[0], "SimulationIntputInfo_#")) << names[0];
    ASSERT_EQ(34u, names[0].size());
    const std::string folder = root.base() + names[0] + "/";
    for (const std::string& made : {root.base(), folder}) {
        struct stat st;
        ASSERT_EQ(0, stat(made.c_str(), &st));
        EXPECT_EQ(0700u, st.st_mode & 0777) << made;
    }
    EXPECT_EQ((std::vector<std::string>{"database.bin", "inputFrameInfo_3x2_1_.yuv",
                                        "inputFrameInfo_6x4_0_.yuv", "requestInfo.bin"}),
              zoltest::ListDir(folder));
    EXPECT_EQ(request.Payload(0), ReadFile(folder + "inputFrameInfo_6x4_0_.yuv"));
    EXPECT_EQ(request.Payload(1), ReadFile(folder + "inputFrameInfo_3x2_1_.yuv"));
    EXPECT_EQ("database", ReadFile(folder + "database.bin"));
    const int32_t records[20] = {0, 6, 4, 16, 5, 2, 501, 502, 0, 0,
                                 0, 3, 2, 4,  2, 2, 601, 0,   0, 0};  // each its own stride
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(records), 80),
              ReadFile(folder + "requestInfo.bin"));
    for (const char* line : {"Start CPU Sync Buffer, fd: 501, sync type: 3,",
                             "Start CPU Sync Buffer, fd: 601, sync type: 3,",
                             "End CPU Sync Buffer, fd: 501,", "End CPU Sync Buffer, fd: 601,"}) {
        EXPECT_EQ(1u, log.Count(line)) << line;
    }
    EXPECT_EQ(4u, log.Count("CPU Sync Buffer"));

    const struct {
        size_t buffers;
        uint32_t planes;  // the first buffer's
        unsigned databaseSize;
        size_t syncLines;
    } rows[] = {{2, 1, 1, 4}, {1, 0, 8, 0}, {0, 0, 0, 0}};
    for (const auto& row : rows) {
        zoltest::RemoveTree(root.base() + zoltest::ListDir(root.base()).at(0));
        buffers[0].numberOfPlanes = row.planes;
        std::vector<ZOLImageBuffer> some(buffers.begin(), buffers.begin() + row.buffers);
        log.Clear();
        ASSERT_TRUE(sim.saveSimulationInfo(some, Db(db), row.databaseSize));
        const std::string saved = root.base() + zoltest::ListDir(root.base()).at(0) + "/";
        EXPECT_EQ(row.syncLines, log.Count("CPU Sync Buffer")) << row.planes;
        EXPECT_EQ(40 * row.buffers, ReadFile(saved + "requestInfo.bin").size());
        EXPECT_EQ(db.substr(0, row.databaseSize), ReadFile(saved + "database.bin"));
    }
}

// Each replay takes the next folder in listing order, wrapping around; names that begin with
// '.' are not listed (entries that are not folders: the hostile replays in tests/faults). An
// index the list no longer reaches fails and stays; Initialize starts from the first folder.
TEST(AlgoSimulation, ReplaysWalkTheFoldersInListingOrder) {
    SimRoot root;
    ZOLAlgoSimulation sim;
    std::vector<ZOLImageBuffer> none;
    std::vector<std::string> listed;
    zoltest::LogCapture log;
    auto replay = [&](const std::string& sizeAndIndex, int read) {
        log.Clear();
        std::string db = "-";
        const bool result = sim.readSimulationInfo(none, Db(db), 1);
        EXPECT_EQ(1u, log.Count("directory size=" + sizeAndIndex)) << sizeAndIndex;
        EXPECT_EQ(read < 0 ? "-" : listed.at(read), db) << sizeAndIndex;
        return result;
    };
    EXPECT_FALSE(replay("0, algoFolderNamesIndex=0", -1));
    for (const std::string name : {".hidden", "A", "B", "C"}) {
        root.WriteFile(kBase + name + "/database.bin", name);
    }
    listed = Listed(root.base());
    for (const int k : {0, 1, 2, 0, 1}) {
        EXPECT_TRUE(replay("3, algoFolderNamesIndex=" + std::to_string(k), k));
    }
    zoltest::RemoveTree(root.base() + listed[0]);
    zoltest::RemoveTree(root.base() + listed[1]);
    EXPECT_FALSE(replay("1, algoFolderNamesIndex=2", -1));
    EXPECT_FALSE(replay("1, algoFolderNamesIndex=2", -1));
    sim.Initialize();
    listed = Listed(root.base());
    EXPECT_TRUE(replay("1, algoFolderNamesIndex=0", 0));
    zoltest::RemoveTree(root.base());
    EXPECT_FALSE(replay("0, algoFolderNamesIndex=0", -1));
}

// A replay reads each file of the folder by its name. The records go into as many of the
// caller's records as it holds, each logging its count of items read (a record the file does
// not reach stays as it was, and the addresses always do); frames _0_ to _2_ into those
// elements (a frame the vector has no element for is skipped); the database into a block of
// exactly its size, logging a count of 1 for a whole block, else 0. Other names are unknown.
TEST(AlgoSimulation, ReplayReadsEachFileByItsName) {
    SimRoot root;
    Request saved({{8, 4}, {8, 4}, {8, 4}, {8, 4}}, 8, 1);
    for (int i = 0; i < 4; ++i) {
        saved.buffers[i].fd[0] = saved.buffers[i].fd[3] = 10 + i;  // the stored fields differ
    }
    const std::string folder = root.MakeDir(kBase + "A") + "/";
    std::string path = folder + "requestInfo.bin";
    ASSERT_TRUE(ZOLAlgoSimulation().writerRequestBuffer(saved.buffers, &path[0]));
    // Frame 0's name holds "database" too: a frame name wins, even for no element.
    for (const char* name : {"inputFrameInfo_8x4_0_database.yuv", "inputFrameInfo_8x4_1_.yuv",
                             "inputFrameInfo_8x4_2_.yuv", "inputFrameInfo_8x4_3_.yuv"}) {
        root.WriteFile(kBase + "A/" + name, saved.Payload(name[19] - '0'));
    }
    root.WriteFile(kBase + "A/notes.txt", "");
    const struct {
        size_t buffers, framesRead, unknown;
        std::string database;
        size_t size;
        std::string read;
        int count;
    } rows[] = {
        {5, 3, 2, "database", 8, "database", 1},
        {4, 3, 2, std::string(40, 'L'), 16, std::string(16, 'L'), 1},
        {1, 1, 4, "short", 16, "short...........", 0},
        {0, 0, 5, "x", 0, "", 0},
    };
    for (const auto& row : rows) {
        root.WriteFile(kBase + "A/database.bin", row.database);
        Request into(std::vector<std::pair<uint32_t, uint32_t>>(row.buffers, {8, 4}), 8, 50);
        const std::vector<ZOLImageBuffer> given = into.buffers;
        std::string db(row.size, '.');
        zoltest::LogCapture log;
        ASSERT_TRUE(ZOLAlgoSimulation().readSimulationInfo(into.buffers, Db(db), row.size));
        EXPECT_EQ(row.read, db);
        EXPECT_EQ(1u, log.Matching(ANDROID_LOG_DEBUG,
                                   kSay + "origin database size = " + std::to_string(row.size) +
                                       ", read data size = " + std::to_string(row.count)));
        for (size_t i = 0; i < row.buffers; ++i) {
            EXPECT_EQ(Fields(i < 4 ? saved.buffers[i] : given[i]), Fields(into.buffers[i])) << i;
            EXPECT_EQ(given[i].Addr[1], into.buffers[i].Addr[1]);
            EXPECT_EQ(i < row.framesRead, i < 4 && saved.Payload(i) == into.Payload(i)) << i;
        }
        EXPECT_EQ(std::min<size_t>(row.buffers, 4),
                  log.Matching(ANDROID_LOG_DEBUG, kSay + "read RequestBuffer size = 8."));
        EXPECT_EQ(row.buffers - std::min<size_t>(row.buffers, 4),
                  log.Matching(ANDROID_LOG_DEBUG, kSay + "read RequestBuffer size = 0."));
        EXPECT_EQ(row.unknown, log.Count(kSay + "read data don't exit."));
    }
}

// A request file that ends inside a record: the bytes it holds are read over the record, the
// rest stays, and the log counts the items completed (format, width and height are one item).
TEST(AlgoSimulation, AShortRequestFileFillsWhatItReaches) {
    SimRoot root;
    const int32_t file[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    constexpr int64_t U = 0xFFFFFFFF;  // an unsigned field the file does not reach
    const struct {
        size_t bytes;
        unsigned items;
        std::vector<int64_t> fields;
    } rows[] = {
        {0, 0, {U, U, U, U, U, U, -1, -1, -1, -1}},
        {11, 0, {1, 2, 0xFF000003, U, U, U, -1, -1, -1, -1}},
        {12, 1, {1, 2, 3, U, U, U, -1, -1, -1, -1}},
        {30, 5, {1, 2, 3, 4, 5, 6, 7, -65528, -1, -1}},
        {40, 8, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
    };
    for (const auto& row : rows) {
        std::string path =
            root.WriteFile("r.bin", std::string(reinterpret_cast<const char*>(file), row.bytes));
        std::vector<ZOLImageBuffer> buffers(1);
        ZOLImageBuffer& b = buffers[0];
        b.format = b.width = b.height = b.planeStride = b.sliceHeight = b.numberOfPlanes = ~0u;
        std::fill(std::begin(b.fd), std::end(b.fd), -1);
        zoltest::LogCapture log;
        ASSERT_TRUE(ZOLAlgoSimulation().readRequestBuffer(buffers, &path[0]));
        EXPECT_EQ(row.fields, Fields(b)) << row.bytes;
        EXPECT_EQ(1u,
                  log.Count(kSay + "read RequestBuffer size = " + std::to_string(row.items) + "."))
            << row.bytes;
    }
}

// Records that would make a frame's read reach past the caller's planes skip the frame. The
// records are listed before the frame, so the frame is read with them.
TEST(AlgoSimulation, ReplayedRecordsNeverTakeAFrameReadPastThePlanes) {
    SimRoot root;
    const std::string folder = root.MakeDir(kBase + "A") + "/";
    std::string path = folder + "requestInfo.bin";
    root.WriteFile(kBase + "A/requestInfo.bin", "");
    for (int k = 0; Listed(folder).size() < 2; ++k) {  // a frame name listed second
        ASSERT_LT(k, 64);
        const std::string name = "frame" + std::to_string(k) + "_0_.yuv";
        root.WriteFile(kBase + "A/" + name, std::string(4096, 'x'));
        if (Listed(folder).at(0) != "requestInfo.bin") {
            zoltest::RemoveTree(folder + name);
        }
    }
    const struct {
        uint32_t format, width, height, stride;
        bool read;
    } rows[] = {
        {0, 8, 40, 8, false},           // more rows than the planes hold
        {0, 64, 1, 64, false},          // one row, longer than the plane
        {0, 8, 4, 4096, false},         // rows too far apart
        {0, 8, 4, 0xFFFFFFF8u, false},  // a negative stride
        {0, 1, 4096, 0, false},         // more one-byte rows, all at one address, than bytes
        {5, 0x80000000u, 4, 8, false},  // a row size that overflows
        {6, 4, 4, 8, false},            // a second plane the caller's format has not
        {0, 8, 2, 8, true},             // fewer rows: read
    };
    for (const auto& row : rows) {
        Request into({{8, 4}}, 8, 1);
        into.images[0]->planes[1].resize(16);  // exactly the chroma rows
        into.buffers[0].Addr[1] = into.images[0]->planes[1].data();
        into.buffers[0].format = row.format == 6 ? 7 : 0;  // 7: one plane of 8 x 4 bytes
        std::vector<ZOLImageBuffer> records = into.buffers;
        records[0].format = row.format;
        records[0].width = row.width;
        records[0].height = row.height;
        records[0].planeStride = row.stride;
        ASSERT_TRUE(ZOLAlgoSimulation().writerRequestBuffer(records, &path[0]));
        const std::vector<uint8_t> before = into.images[0]->planes[0];
        ASSERT_TRUE(ZOLAlgoSimulation().readSimulationInfo(into.buffers, nullptr, 0));
        EXPECT_EQ(row.stride, into.buffers[0].planeStride);
        EXPECT_EQ(row.read, before != into.images[0]->planes[0]) << row.height << " " << row.stride;
    }
}

// Every message of the unit, exactly, at level D; the read counts are the replay test's.
TEST(AlgoSimulation, MessagesAtLevelD) {
    SimRoot root("/data");
    ZOLAlgoSimulation sim;
    zoltest::LogCapture log;
    Request one({{8, 4}}, 8, 1);
    std::string db = "dbdb", bad = root.Resolve("/missing/file");
    sim.Initialize();  // no parent: fails
    EXPECT_FALSE(sim.writerRequestBuffer(one.buffers, &bad[0]));
    EXPECT_FALSE(sim.readRequestBuffer(one.buffers, &bad[0]));
    sim.dumpDatabase(Db(db), 4, &bad[0]);
    sim.readDatabase(Db(db), 4, &bad[0]);
    EXPECT_FALSE(sim.readSimulationInfo(one.buffers, Db(db), 4));
    root.MakeDir("/data/vendor/camera");
    sim.Initialize();
    sim.saveSimulationInfo(one.buffers, Db(db), 4);
    const std::string folder = root.base() + zoltest::ListDir(root.base()).at(0) + "/";
    root.WriteFile(folder.substr(root.path().size()) + "notes.txt", "");
    sim.readSimulationInfo(one.buffers, Db(db), 4);
    const std::string read = kSay + "read data directory: " + folder;
    const struct {
        std::string text;
        size_t count;
    } rows[] = {
        {kSay + "make algosimulation directory fail.", 1},
        {kSay + "Open file failed.", 1},
        {kSay + "read data don't exit.", 2},
        {kSay + "dump database failed.", 1},
        {kSay + "read database failed.", 1},
        {kSay + "Algorithmtion path directory size=0, algoFolderNamesIndex=0", 1},
        {kSay + "Current directory don't exit!", 1},
        {kSay + "Algorithmtion path directory size=1, algoFolderNamesIndex=0", 1},
        {kSay + folder, 1},
        {read + "database.bin, file name: database.bin", 1},
        {read + "requestInfo.bin, file name: requestInfo.bin", 1},
        {read + "inputFrameInfo_8x4_0_.yuv, file name: inputFrameInfo_8x4_0_.yuv", 1},
        {read + "notes.txt, file name: notes.txt", 1},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.count, log.Matching(ANDROID_LOG_DEBUG, row.text)) << row.text;
    }
}

// With the mode property at anything but 1 or 2 the facility does nothing at all.
TEST(SimulationOff, OnAlgoSimulationNeitherSavesNorReplays) {
    SimRoot root;
    root.WriteFile(kBase + "A/database.bin", "saved");
    ZOLAlgoSimulation sim;
    sim.Initialize();
    std::vector<ZOLImageBuffer> buffers;
    std::string db = "mine!";
    zoltest::LogCapture log;
    EXPECT_TRUE(sim.OnAlgoSimulation(buffers, Db(db), 5));
    EXPECT_EQ(std::vector<std::string>{"A"}, zoltest::ListDir(root.base()));
    EXPECT_EQ("mine!", db);
    EXPECT_TRUE(log.Lines().empty());
}

}  // namespace
