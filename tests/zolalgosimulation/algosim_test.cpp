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

// An NV21 image with a pattern of its own, planes exactly large enough, and what its frame
// file holds.
std::unique_ptr<TestImage> Nv21(uint32_t width, uint32_t height, uint32_t stride, uint8_t seed) {
    return std::make_unique<TestImage>(0, width, height, stride, size_t{stride} * height, seed);
}
std::string Payload(const TestImage& image) {
    const int w = static_cast<int>(image.buffer.width), h = static_cast<int>(image.buffer.height);
    return image.Rows(0, h, w) + image.Rows(1, h / 2, w);
}

// The ten stored fields of a record, in file order.
std::vector<int64_t> Fields(const ZOLImageBuffer& b) {
    return {b.format,         b.width, b.height, b.planeStride, b.sliceHeight,
            b.numberOfPlanes, b.fd[0], b.fd[1],  b.fd[2],       b.fd[3]};
}

ZOLImageBuffer Record(uint32_t seed) {
    ZOLImageBuffer b = {seed, 4000 + seed, 3000 + seed, 4096 + seed, 3072 + seed,
                        2,    {},          {},          nullptr,     nullptr};
    for (int i = 0; i < 4; ++i) {
        b.fd[i] = static_cast<int>(seed * 10) - i - 10;  // negative ones too
    }
    b.Addr[0] = &b;  // the plane addresses and handle are never stored
    b.pNativeHandle = &b;
    return b;
}

TEST(AlgoSimulation, SaveFolderIsNamedFromTheLocalTimeWithMilliseconds) {
    zoltest::DeviceRoot root;
    const struct {
        int month, day, hour, minute, second;
        long micros;
        const char* name;
    } rows[] = {
        {2, 3, 9, 5, 7, 42999, "SimulationIntputInfo_0303090507042/"},
        {11, 31, 23, 59, 59, 999999, "SimulationIntputInfo_1231235959999/"},
    };
    for (const auto& row : rows) {
        struct tm local = {};
        local.tm_mon = row.month;
        local.tm_mday = row.day;
        local.tm_hour = row.hour;
        local.tm_min = row.minute;
        local.tm_sec = row.second;
        char folder[zol::algosim::kFolderPathBytes];
        zol::algosim::SaveFolderPath(folder, local, row.micros);
        EXPECT_EQ(root.Resolve(kBase) + row.name, folder);
    }
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

    // Reading: as many records as the vector holds; a record's logged count is its complete
    // items (8 for a whole record); the fields the file does not reach stay as they were.
    const struct {
        size_t bytes, records;
        std::vector<unsigned> counts, fieldsRead;
    } rows[] = {
        {120, 2, {8, 8}, {10, 10}},
        {120, 4, {8, 8, 8, 0}, {10, 10, 10, 0}},
        {70, 2, {8, 5}, {10, 7}},  // the sixth item is cut: fd1 is left unspecified
    };
    for (const auto& row : rows) {
        path = dir.WriteFile("short.bin", file.substr(0, row.bytes));
        std::vector<ZOLImageBuffer> into(row.records, Record(9));
        zoltest::LogCapture log;
        ASSERT_TRUE(sim.readRequestBuffer(into, &path[0]));
        std::vector<std::string> lines;
        for (size_t j = 0; j < row.records; ++j) {
            lines.push_back("[algorithm simulation]: read RequestBuffer size = " +
                            std::to_string(row.counts[j]) + ".");
            const std::vector<int64_t> got = Fields(into[j]), kept = Fields(Record(9));
            const std::vector<int64_t> want = Fields(saved[j]);
            for (size_t f = 0; f < 10; ++f) {
                if (f != row.fieldsRead[j]) {
                    EXPECT_EQ(f < row.fieldsRead[j] ? want[f] : kept[f], got[f]) << j << " " << f;
                }
            }
            EXPECT_EQ(Record(9).Addr[0], into[j].Addr[0]);
            EXPECT_EQ(Record(9).pNativeHandle, into[j].pNativeHandle);
        }
        EXPECT_EQ(lines, log.Texts(ANDROID_LOG_DEBUG));
    }

    // The database: byte for byte, and read back into a block of exactly its size (a read
    // past it would be caught); the logged count is 1 for a whole block, else 0.
    std::string block = "database block of thirty-seven bytes!";
    path = dir / "database.bin";
    sim.dumpDatabase(Db(block), block.size(), &path[0]);
    EXPECT_EQ(block, ReadFile(path));
    sim.dumpDatabase(Db(block), 0, &path[0]);
    EXPECT_EQ("", ReadFile(path));
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
        std::unique_ptr<char[]> into(new char[row.size + 1]);
        memset(into.get(), '.', row.size + 1);
        zoltest::LogCapture log;
        sim.readDatabase(reinterpret_cast<ZOLDatabaseBaseStruct*>(into.get()), row.size, &path[0]);
        EXPECT_EQ(row.after, std::string(into.get(), row.size));
        EXPECT_EQ(std::vector<std::string>{"[algorithm simulation]: origin database size = " +
                                           std::to_string(row.size) +
                                           ", read data size = " + std::to_string(row.count)},
                  log.Texts(ANDROID_LOG_DEBUG));
    }
}

TEST(AlgoSimulation, SaveWritesRecordsFramesWithTheFirstBuffersLayoutAndTheDatabase) {
    EXPECT_EQ(1, ZOLAlgoSimulationMode) << "saving is the default";
    SimRoot root("/data/vendor/camera");
    ZOLAlgoSimulation sim;
    auto first = Nv21(6, 4, 16, 1), second = Nv21(3, 2, 4, 2);
    first->buffer.sliceHeight = 5;
    first->buffer.fd[0] = 501;
    first->buffer.fd[1] = 502;
    second->buffer.fd[0] = 601;
    second->planes[0].resize(32);  // dumped 16 bytes a row, as the first buffer is
    second->buffer.Addr[0] = second->planes[0].data();
    std::vector<ZOLImageBuffer> buffers = {first->buffer, second->buffer};
    std::string db = "database";
    EXPECT_FALSE(sim.OnAlgoSimulation(buffers, Db(db), 8)) << "no base folder, and none made";
    EXPECT_TRUE(zoltest::ListDir(root.Resolve("/data/vendor/camera")).empty());
    sim.Initialize();
    struct stat st;
    ASSERT_EQ(0, stat(root.base().c_str(), &st));
    EXPECT_EQ(0700u, st.st_mode & 0777);

    zoltest::LogCapture log;
    const time_t before = time(nullptr);
    ASSERT_TRUE(sim.OnAlgoSimulation(buffers, Db(db), 8));
    const time_t after = time(nullptr);
    const std::vector<std::string> names = zoltest::ListDir(root.base());
    ASSERT_EQ(1u, names.size());
    struct tm saved = {};
    ASSERT_TRUE(zoltest::MatchesPattern(names[0], "SimulationIntputInfo_#")) << names[0];
    ASSERT_EQ(34u, names[0].size());
    sscanf(names[0].c_str() + 21, "%2d%2d%2d%2d%2d", &saved.tm_mon, &saved.tm_mday, &saved.tm_hour,
           &saved.tm_min, &saved.tm_sec);
    struct tm now;
    localtime_r(&before, &now);
    saved.tm_year = now.tm_year;
    saved.tm_mon -= 1;
    saved.tm_isdst = -1;
    EXPECT_LE(before, mktime(&saved));
    EXPECT_GE(after, mktime(&saved));

    const std::string folder = root.base() + names[0] + "/";
    ASSERT_EQ(0, stat(folder.c_str(), &st));
    EXPECT_EQ(0700u, st.st_mode & 0777);
    EXPECT_EQ((std::vector<std::string>{"database.bin", "inputFrameInfo_3x2_1_.yuv",
                                        "inputFrameInfo_6x4_0_.yuv", "requestInfo.bin"}),
              zoltest::ListDir(folder));
    EXPECT_EQ(Payload(*first), ReadFile(folder + "inputFrameInfo_6x4_0_.yuv"));
    second->buffer.planeStride = 16;
    EXPECT_EQ(Payload(*second), ReadFile(folder + "inputFrameInfo_3x2_1_.yuv"));
    EXPECT_EQ("database", ReadFile(folder + "database.bin"));
    const int32_t records[20] = {0, 6, 4, 16, 5, 2, 501, 502, 0, 0,
                                 0, 3, 2, 4,  2, 2, 601, 0,   0, 0};  // each its own stride
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(records), 80),
              ReadFile(folder + "requestInfo.bin"));
    // Only fd0 is synchronised around each dump, read and write.
    EXPECT_EQ(1u, log.Count("Start CPU Sync Buffer, fd: 501, sync type: 3,"));
    EXPECT_EQ(1u, log.Count("Start CPU Sync Buffer, fd: 601, sync type: 3,"));
    EXPECT_EQ(1u, log.Count("End CPU Sync Buffer, fd: 501,"));
    EXPECT_EQ(1u, log.Count("End CPU Sync Buffer, fd: 601,"));
    EXPECT_EQ(4u, log.Count("CPU Sync Buffer"));

    // No planes (the first buffer's count), no synchronisation; no buffers, empty records.
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
    const uint32_t sizes[3][2] = {{64, 48}, {40, 30}, {50, 20}};
    auto frames = [&](int seed) {
        std::vector<std::unique_ptr<TestImage>> images;
        for (int i = 0; i < 3; ++i) {
            images.push_back(Nv21(sizes[i][0], sizes[i][1], 80, static_cast<uint8_t>(seed + i)));
        }
        return images;
    };
    auto records = [](const std::vector<std::unique_ptr<TestImage>>& images) {
        std::vector<ZOLImageBuffer> out;
        for (const auto& image : images) {
            out.push_back(image->buffer);
        }
        return out;
    };
    for (char id = 'a'; id < 'd'; ++id) {
        auto images = frames(id);
        std::vector<ZOLImageBuffer> buffers = records(images);
        std::string db(96, id);
        ASSERT_TRUE(sim.OnAlgoSimulation(buffers, Db(db), 96));
        usleep(2000);  // a folder per millisecond
    }
    std::vector<char> listed;  // the invocation in each folder, in directory-stream order
    DIR* dir = opendir(root.base().c_str());
    while (const dirent* entry = readdir(dir)) {
        if (entry->d_name[0] != '.') {
            listed.push_back(ReadFile(root.base() + entry->d_name + "/database.bin").at(0));
        }
    }
    closedir(dir);
    ASSERT_EQ(3u, listed.size());
    for (int k = 0; k < 7; ++k) {
        auto into = frames(200);
        std::vector<ZOLImageBuffer> buffers = records(into);
        std::string db(96, '?');
        ASSERT_TRUE(sim.readSimulationInfo(buffers, Db(db), 96));
        const char id = listed[k % 3];
        EXPECT_EQ(std::string(96, id), db) << k;
        auto saved = frames(id);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(Payload(*saved[i]), Payload(*into[i])) << k << " " << i;
            EXPECT_EQ(Fields(saved[i]->buffer), Fields(buffers[i]));
            EXPECT_EQ(into[i]->buffer.Addr[1], buffers[i].Addr[1]);
        }
    }
}

// Files are dispatched by name: the records, frames _0_ to _2_ into those elements (a frame the
// vector has no element for is skipped), the database; anything else is logged as unknown.
TEST(AlgoSimulation, ReplayDispatchesFilesByName) {
    SimRoot root;
    auto saved = Nv21(8, 4, 8, 1);
    const std::string folder = kBase + "A/";
    std::vector<ZOLImageBuffer> four(4, saved->buffer);
    root.WriteFile(folder + "requestInfo.bin", "");
    std::string path = root.Resolve(folder + "requestInfo.bin");
    ASSERT_TRUE(ZOLAlgoSimulation().writerRequestBuffer(four, &path[0]));
    // Frame 0's name holds "database" too: a frame name wins, even for no element.
    for (const char* name : {"inputFrameInfo_8x4_0_database.yuv", "inputFrameInfo_8x4_1_.yuv",
                             "inputFrameInfo_8x4_2_.yuv", "inputFrameInfo_8x4_3_.yuv"}) {
        root.WriteFile(folder + name, Payload(*saved));
    }
    root.WriteFile(folder + "database.bin", "db");
    root.WriteFile(folder + "notes.txt", "");
    const struct {
        size_t buffers, framesRead, unknown;
    } rows[] = {{4, 3, 2}, {1, 1, 4}, {0, 0, 5}};
    for (const auto& row : rows) {
        std::vector<std::unique_ptr<TestImage>> into;
        std::vector<ZOLImageBuffer> buffers;
        for (size_t i = 0; i < row.buffers; ++i) {
            into.push_back(Nv21(8, 4, 8, 200));
            buffers.push_back(into.back()->buffer);
        }
        std::string db = "..";
        zoltest::LogCapture log;
        ASSERT_TRUE(ZOLAlgoSimulation().readSimulationInfo(buffers, Db(db), 2));
        EXPECT_EQ("db", db);
        for (size_t i = 0; i < row.buffers; ++i) {
            EXPECT_EQ(i < row.framesRead, Payload(*saved) == Payload(*into[i])) << i;
        }
        EXPECT_EQ(row.unknown, log.Count("[algorithm simulation]: read data don't exit."));
    }
}

// Records that would make a frame's read reach past the caller's planes skip the frame. The
// records file is listed before the frame, so the frame is read with those records.
TEST(AlgoSimulation, ReplayedRecordsNeverTakeAFrameReadPastThePlanes) {
    SimRoot root;
    const std::string folder = kBase + "A/";
    root.WriteFile(folder + "requestInfo.bin", "");
    std::string frame;
    for (int k = 0; frame.empty(); ++k) {  // a name the directory lists second
        ASSERT_LT(k, 64);
        const std::string name = "frame" + std::to_string(k) + "_0_.yuv";
        root.WriteFile(folder + name, std::string(4096, 'x'));
        DIR* dir = opendir(root.Resolve(folder).c_str());
        std::vector<std::string> order;
        while (const dirent* entry = readdir(dir)) {
            if (entry->d_name[0] != '.') {
                order.push_back(entry->d_name);
            }
        }
        closedir(dir);
        if (order.at(0) == "requestInfo.bin") {
            frame = name;
        } else {
            unlink(root.Resolve(folder + name).c_str());
        }
    }
    const auto shape = Nv21(8, 4, 8, 1);
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
        ZOLImageBuffer record = shape->buffer;
        record.format = row.format;
        record.width = row.width;
        record.height = row.height;
        record.planeStride = row.stride;
        std::vector<ZOLImageBuffer> one = {record};
        std::string path = root.Resolve(folder + "requestInfo.bin");
        ASSERT_TRUE(ZOLAlgoSimulation().writerRequestBuffer(one, &path[0]));
        auto into = Nv21(8, 4, 8, 200);
        into->planes[1].resize(16);  // exactly the chroma rows
        into->buffer.Addr[1] = into->planes[1].data();
        into->buffer.format = row.format == 6 ? 7 : 0;  // 7: one plane of 8 x 4 bytes
        std::vector<ZOLImageBuffer> buffers = {into->buffer};
        const std::vector<uint8_t> before = into->planes[0];
        ASSERT_TRUE(ZOLAlgoSimulation().readSimulationInfo(buffers, nullptr, 0));
        EXPECT_EQ(row.stride, buffers[0].planeStride);
        EXPECT_EQ(row.read, before != into->planes[0]) << row.height << " " << row.stride;
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
    auto image = Nv21(8, 4, 8, 1);
    std::vector<ZOLImageBuffer> one = {image->buffer};
    std::string db = "dbdb", bad = root.Resolve("/missing/file");
    sim.Initialize();  // no parent: fails
    sim.writerRequestBuffer(one, &bad[0]);
    sim.readRequestBuffer(one, &bad[0]);
    sim.dumpDatabase(Db(db), 4, &bad[0]);
    sim.readDatabase(Db(db), 4, &bad[0]);
    sim.readSimulationInfo(one, Db(db), 4);
    root.MakeDir("/data/vendor/camera");
    sim.Initialize();
    sim.saveSimulationInfo(one, Db(db), 4);
    const std::string base = root.base(), folder = base + zoltest::ListDir(base).at(0) + "/";
    root.WriteFile(folder.substr(root.path().size()) + "notes.txt", "");
    sim.readSimulationInfo(one, Db(db), 4);
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
