// Saving and replaying algorithm inputs, in save mode (the property unset). Every TEST is a
// process of its own.
#include <gtest/gtest.h>

#include <android/log.h>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "zolalgosimulation.h"
#include "zolalgosimulation/zolalgosimulationinternal.h"
#include "zoltest.h"

namespace {

using zoltest::ReadFile;
using zoltest::TestImage;
const std::string kBase = "/data/vendor/camera/algosimulation/";

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
    DIR* dir = opendir(path.c_str());
    while (const dirent* entry = readdir(dir)) {
        if (entry->d_name[0] != '.') {
            names.push_back(entry->d_name);
        }
    }
    closedir(dir);
    return names;
}

// NV21 images of the given sizes, all `stride` bytes a row, each with its own pattern
// (`seed` onwards), and the request's records of them.
struct Request {
    Request(std::vector<std::pair<uint32_t, uint32_t>> sizes, uint32_t stride, int seed) {
        for (const auto& size : sizes) {
            images.push_back(std::make_unique<TestImage>(0, size.first, size.second, stride,
                                                         size_t{stride} * size.second, seed++));
            buffers.push_back(images.back()->buffer);
        }
    }
    // What the frame file of image i holds.
    std::string Payload(size_t i) const {
        const int w = static_cast<int>(images[i]->buffer.width);
        const int h = static_cast<int>(images[i]->buffer.height);
        return images[i]->Rows(0, h, w) + images[i]->Rows(1, h / 2, w);
    }
    std::vector<std::unique_ptr<TestImage>> images;
    std::vector<ZOLImageBuffer> buffers;
};

// The ten stored fields of a record, in file order.
std::vector<int64_t> Fields(const ZOLImageBuffer& b) {
    return {b.format,         b.width, b.height, b.planeStride, b.sliceHeight,
            b.numberOfPlanes, b.fd[0], b.fd[1],  b.fd[2],       b.fd[3]};
}

// A record whose stored fields all differ; the addresses are never stored.
ZOLImageBuffer Record(int seed) {
    void* const address = reinterpret_cast<void*>(uintptr_t{0x1000});
    return {static_cast<uint32_t>(seed),
            4000u + seed,
            3000u + seed,
            4096u + seed,
            3072u + seed,
            2,
            {address},
            {seed - 1, seed - 2, seed - 3, seed - 4},
            address,
            nullptr};
}

TEST(AlgoSimulation, SaveFolderIsNamedFromTheLocalTimeWithMilliseconds) {
    zoltest::DeviceRoot root;
    struct tm local = {7, 5, 9, 3, 2, 126, 0, 0, 0, 0, nullptr};  // 3 March, 09:05:07
    char folder[zol::algosim::kFolderPathBytes];
    zol::algosim::SaveFolderPath(folder, local, 42999);
    EXPECT_EQ(root.Resolve(kBase) + "SimulationIntputInfo_0303090507042/", folder);
}

TEST(AlgoSimulation, RequestAndDatabaseFiles) {
    zoltest::TempDir dir;
    ZOLAlgoSimulation sim;
    std::string path = dir / "requestInfo.bin";
    std::vector<ZOLImageBuffer> saved = {Record(1), Record(2), Record(3)};
    ASSERT_TRUE(sim.writerRequestBuffer(saved, &path[0]));
    const std::string file = ReadFile(path);
    ASSERT_EQ(120u, file.size());
    const int32_t first[10] = {1, 4001, 3001, 4097, 3073, 2, 0, -1, -2, -3};
    EXPECT_EQ(0, memcmp(first, file.data(), sizeof(first)));

    // As many records are read as the vector holds, each logging its count of items read; a
    // record past the end of the file stays as it was.
    for (const size_t records : {2, 4}) {
        std::vector<ZOLImageBuffer> into(records, Record(9));
        zoltest::LogCapture log;
        ASSERT_TRUE(sim.readRequestBuffer(into, &path[0]));
        std::vector<std::string> lines;
        for (size_t j = 0; j < records; ++j) {
            const bool inFile = j < 3;
            lines.push_back(std::string("[algorithm simulation]: read RequestBuffer size = ") +
                            (inFile ? "8." : "0."));
            EXPECT_EQ(Fields(inFile ? saved[j] : Record(9)), Fields(into[j])) << j;
            EXPECT_EQ(Record(9).Addr[0], into[j].Addr[0]);
            EXPECT_EQ(Record(9).pNativeHandle, into[j].pNativeHandle);
        }
        EXPECT_EQ(lines, log.Texts(ANDROID_LOG_DEBUG));
    }

    // The database, byte for byte; read back into a block of exactly its size, logging a
    // count of 1 for a whole block and 0 otherwise.
    std::string block = "database block of thirty-seven bytes!";
    path = dir / "database.bin";
    sim.dumpDatabase(Db(block), 0, &path[0]);
    EXPECT_EQ("", ReadFile(path));
    sim.dumpDatabase(Db(block), block.size(), &path[0]);
    EXPECT_EQ(block, ReadFile(path));
    const struct {
        std::string file;
        size_t size;
        std::string after;
        int count;
    } dbRows[] = {
        {block, 37, block, 1},
        {std::string(40, 'L'), 16, std::string(16, 'L'), 1},
        {"short", 16, "short...........", 0},
        {"x", 0, "", 0},
    };
    for (const auto& row : dbRows) {
        path = dir.WriteFile("database.bin", row.file);
        std::unique_ptr<char[]> into(new char[row.size]);
        memset(into.get(), '.', row.size);
        zoltest::LogCapture log;
        sim.readDatabase(reinterpret_cast<ZOLDatabaseBaseStruct*>(into.get()), row.size, &path[0]);
        EXPECT_EQ(row.after, std::string(into.get(), row.size));
        EXPECT_EQ(1u, log.Count("[algorithm simulation]: origin database size = " +
                                std::to_string(row.size) +
                                ", read data size = " + std::to_string(row.count)));
    }
}

TEST(AlgoSimulation, SaveWritesRecordsFramesWithTheFirstBuffersLayoutAndTheDatabase) {
    EXPECT_EQ(1, ZOLAlgoSimulationMode) << "saving is the default";
    SimRoot root("/data/vendor/camera");
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
    const time_t before = time(nullptr);
    ASSERT_TRUE(sim.OnAlgoSimulation(buffers, Db(db), 8));
    const time_t after = time(nullptr);
    const std::vector<std::string> names = zoltest::ListDir(root.base());
    ASSERT_EQ(1u, names.size());
    ASSERT_TRUE(zoltest::MatchesPattern(names[0], "SimulationIntputInfo_#")) << names[0];
    ASSERT_EQ(34u, names[0].size());
    struct tm saved = {};
    localtime_r(&before, &saved);
    sscanf(names[0].c_str() + 21, "%2d%2d%2d%2d%2d", &saved.tm_mon, &saved.tm_mday, &saved.tm_hour,
           &saved.tm_min, &saved.tm_sec);
    saved.tm_mon -= 1;
    saved.tm_isdst = -1;
    EXPECT_LE(before, mktime(&saved));
    EXPECT_GE(after, mktime(&saved));
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
    // Only fd0 is synchronised around each dump, read and write.
    for (const char* line : {"Start CPU Sync Buffer, fd: 501, sync type: 3,",
                             "Start CPU Sync Buffer, fd: 601, sync type: 3,",
                             "End CPU Sync Buffer, fd: 501,", "End CPU Sync Buffer, fd: 601,"}) {
        EXPECT_EQ(1u, log.Count(line)) << line;
    }
    EXPECT_EQ(4u, log.Count("CPU Sync Buffer"));

    // No planes (the first buffer's count): no synchronisation. No buffers: no records.
    zoltest::RemoveTree(folder);
    buffers.resize(1);
    buffers[0].numberOfPlanes = 0;
    log.Clear();
    ASSERT_TRUE(sim.saveSimulationInfo(buffers, Db(db), 8));
    EXPECT_EQ(0u, log.Count("CPU Sync Buffer"));
    zoltest::RemoveTree(root.base() + zoltest::ListDir(root.base()).at(0));
    buffers.clear();
    ASSERT_TRUE(sim.saveSimulationInfo(buffers, Db(db), 8));
    const std::string empty = root.base() + zoltest::ListDir(root.base()).at(0) + "/";
    EXPECT_EQ((std::vector<std::string>{"database.bin", "requestInfo.bin"}),
              zoltest::ListDir(empty));
    EXPECT_EQ("", ReadFile(empty + "requestInfo.bin"));
}

// Three invocations saved, seven replayed into fresh buffers: each replay brings back one
// invocation whole (records, every plane, the database), walking the folders in listing order
// and wrapping around.
TEST(AlgoSimulation, SavedInvocationsReplayInListingOrderAndWrapAround) {
    SimRoot root;
    ZOLAlgoSimulation sim;
    const std::vector<std::pair<uint32_t, uint32_t>> sizes = {{64, 48}, {40, 30}, {50, 20}};
    for (char id = 'a'; id < 'd'; ++id) {
        Request request(sizes, 80, id);
        std::string db(96, id);
        ASSERT_TRUE(sim.OnAlgoSimulation(request.buffers, Db(db), 96));
        usleep(2000);  // a folder per millisecond
    }
    std::vector<char> listed;  // the invocation in each folder, in listing order
    for (const std::string& name : Listed(root.base())) {
        listed.push_back(ReadFile(root.base() + name + "/database.bin").at(0));
    }
    ASSERT_EQ(3u, listed.size());
    for (int k = 0; k < 7; ++k) {
        Request into(sizes, 80, 200);
        std::string db(96, '?');
        ASSERT_TRUE(sim.readSimulationInfo(into.buffers, Db(db), 96));
        const Request saved(sizes, 80, listed[k % 3]);
        EXPECT_EQ(std::string(96, listed[k % 3]), db) << k;
        for (size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(saved.Payload(i), into.Payload(i)) << k << " " << i;
            EXPECT_EQ(Fields(saved.buffers[i]), Fields(into.buffers[i]));
            EXPECT_EQ(into.images[i]->buffer.Addr[1], into.buffers[i].Addr[1]);
        }
    }
}

// Files are dispatched by name: the records, frames _0_ to _2_ into those elements (a frame the
// vector has no element for is skipped), the database; anything else is logged as unknown.
TEST(AlgoSimulation, ReplayDispatchesFilesByName) {
    SimRoot root;
    Request saved({{8, 4}, {8, 4}, {8, 4}, {8, 4}}, 8, 1);
    const std::string folder = root.MakeDir(kBase + "A") + "/";
    std::string path = folder + "requestInfo.bin";
    ASSERT_TRUE(ZOLAlgoSimulation().writerRequestBuffer(saved.buffers, &path[0]));
    // Frame 0's name holds "database" too: a frame name wins, even for no element.
    for (const char* name : {"inputFrameInfo_8x4_0_database.yuv", "inputFrameInfo_8x4_1_.yuv",
                             "inputFrameInfo_8x4_2_.yuv", "inputFrameInfo_8x4_3_.yuv"}) {
        root.WriteFile(kBase + "A/" + name, saved.Payload(name[19] - '0'));
    }
    root.WriteFile(kBase + "A/database.bin", "db");
    root.WriteFile(kBase + "A/notes.txt", "");
    const struct {
        size_t buffers, framesRead, unknown;
    } rows[] = {{4, 3, 2}, {1, 1, 4}, {0, 0, 5}};
    for (const auto& row : rows) {
        Request into(std::vector<std::pair<uint32_t, uint32_t>>(row.buffers, {8, 4}), 8, 1);
        for (const auto& image : into.images) {
            image->Fill(0xEE);
        }
        std::string db = "..";
        zoltest::LogCapture log;
        ASSERT_TRUE(ZOLAlgoSimulation().readSimulationInfo(into.buffers, Db(db), 2));
        EXPECT_EQ("db", db);
        for (size_t i = 0; i < row.buffers; ++i) {
            EXPECT_EQ(i < row.framesRead, saved.Payload(i) == into.Payload(i)) << i;
        }
        EXPECT_EQ(row.unknown, log.Count("[algorithm simulation]: read data don't exit."));
    }
}

// Records that would make a frame's read reach past the caller's planes skip the frame. The
// records are listed before the frame, so the frame is read with them.
TEST(AlgoSimulation, ReplayedRecordsNeverTakeAFrameReadPastThePlanes) {
    SimRoot root;
    const std::string folder = root.MakeDir(kBase + "A") + "/";
    std::vector<ZOLImageBuffer> none;
    std::string path = folder + "requestInfo.bin";
    ASSERT_TRUE(ZOLAlgoSimulation().writerRequestBuffer(none, &path[0]));
    for (int k = 0; Listed(folder).size() < 2; ++k) {  // a frame name listed second
        ASSERT_LT(k, 64);
        const std::string name = folder + "frame" + std::to_string(k) + "_0_.yuv";
        root.WriteFile(name.substr(root.path().size()), std::string(4096, 'x'));
        if (Listed(folder).at(0) != "requestInfo.bin") {
            unlink(name.c_str());
        }
    }
    const struct {
        uint32_t format, width, height, stride;
        bool read;
    } rows[] = {
        {0, 8, 40, 8, false},           // more rows than the planes hold
        {0, 8, 4, 4096, false},         // rows too far apart
        {0, 8, 4, 0xFFFFFFF8u, false},  // a negative stride
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

// A replay without a folder to open fails and leaves the index where it was; Initialize
// starts again from the first folder.
TEST(AlgoSimulation, ReplayWithoutAFolderFailsAndKeepsItsIndex) {
    SimRoot root;
    ZOLAlgoSimulation sim;
    std::vector<ZOLImageBuffer> none;
    zoltest::LogCapture log;
    auto replay = [&](const char* index) {
        log.Clear();
        const bool result = sim.readSimulationInfo(none, nullptr, 0);
        EXPECT_EQ(1u, log.Count(index)) << index;
        return result;
    };
    EXPECT_FALSE(replay("directory size=0, algoFolderNamesIndex=0"));
    root.WriteFile(kBase + "stray.txt", "");
    root.WriteFile(kBase + ".hidden/x", "");
    EXPECT_FALSE(replay("directory size=1, algoFolderNamesIndex=0"));
    EXPECT_FALSE(replay("directory size=1, algoFolderNamesIndex=0"));
    zoltest::RemoveTree(root.Resolve(kBase + "stray.txt"));
    for (const char* name : {"A", "B", "C"}) {
        root.MakeDir(kBase + name);
    }
    EXPECT_TRUE(replay("directory size=3, algoFolderNamesIndex=0"));
    EXPECT_TRUE(replay("directory size=3, algoFolderNamesIndex=1"));
    zoltest::RemoveTree(root.Resolve(kBase + "A"));
    zoltest::RemoveTree(root.Resolve(kBase + "B"));
    EXPECT_FALSE(replay("directory size=1, algoFolderNamesIndex=2"));
    sim.Initialize();
    EXPECT_TRUE(replay("directory size=1, algoFolderNamesIndex=0"));
    zoltest::RemoveTree(root.base());
    EXPECT_FALSE(replay("directory size=0, algoFolderNamesIndex=0"));
}

// Every message of the unit, exactly, at level D.
TEST(AlgoSimulation, MessagesAtLevelD) {
    SimRoot root("/data");
    ZOLAlgoSimulation sim;
    zoltest::LogCapture log;
    Request one({{8, 4}}, 8, 1);
    std::string db = "dbdb", bad = root.Resolve("/missing/file");
    sim.Initialize();  // no parent: fails
    sim.writerRequestBuffer(one.buffers, &bad[0]);
    sim.readRequestBuffer(one.buffers, &bad[0]);
    sim.dumpDatabase(Db(db), 4, &bad[0]);
    sim.readDatabase(Db(db), 4, &bad[0]);
    sim.readSimulationInfo(one.buffers, Db(db), 4);
    root.MakeDir("/data/vendor/camera");
    sim.Initialize();
    sim.saveSimulationInfo(one.buffers, Db(db), 4);
    const std::string folder = root.base() + zoltest::ListDir(root.base()).at(0) + "/";
    root.WriteFile(folder.substr(root.path().size()) + "notes.txt", "");
    sim.readSimulationInfo(one.buffers, Db(db), 4);
    const std::string m = "[algorithm simulation]: ", read = m + "read data directory: " + folder;
    const struct {
        std::string text;
        size_t count;
    } rows[] = {
        {m + "make algosimulation directory fail.", 1},
        {m + "Open file failed.", 1},
        {m + "read data don't exit.", 2},
        {m + "dump database failed.", 1},
        {m + "read database failed.", 1},
        {m + "Algorithmtion path directory size=0, algoFolderNamesIndex=0", 1},
        {m + "Current directory don't exit!", 1},
        {m + "Algorithmtion path directory size=1, algoFolderNamesIndex=0", 1},
        {m + folder, 1},
        {read + "database.bin, file name: database.bin", 1},
        {read + "requestInfo.bin, file name: requestInfo.bin", 1},
        {read + "inputFrameInfo_8x4_0_.yuv, file name: inputFrameInfo_8x4_0_.yuv", 1},
        {read + "notes.txt, file name: notes.txt", 1},
        {m + "read RequestBuffer size = 8.", 1},
        {m + "origin database size = 4, read data size = 1", 1},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.count, log.Matching(ANDROID_LOG_DEBUG, row.text)) << row.text;
    }
}

}  // namespace
