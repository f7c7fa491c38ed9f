// Replay against hostile save folders: records that no longer describe the caller's planes, a
// geometry that would take billions of reads, FIFOs where files belong, and base-folder entries
// that are not folders. Planes are exactly sized heap blocks: under ASan a stray write is a
// report. A replay that blocks is ended by an alarm, so a hang fails instead of stalling.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "zolalgosimulation.h"
#include "zolbuffermanager.h"
#include "zoltest.h"

namespace {

const std::string kBase = "/data/vendor/camera/algosimulation/";
constexpr const char* kNoData = "[algorithm simulation]: read data don't exit.";
constexpr uint8_t kUntouched = 0xEE;

// One 40-byte request record: format 0, the geometry, two planes, no descriptors.
std::string Record(uint32_t width, uint32_t height, uint32_t stride) {
    const uint32_t fields[10] = {0, width, height, stride, height, 2, 0, 0, 0, 0};
    return std::string(reinterpret_cast<const char*>(fields), sizeof(fields));
}

// A saved folder of one width x height frame (stride = width), every pixel 'F'.
void WriteFolder(const zoltest::DeviceRoot& root, const std::string& name, uint32_t side) {
    const std::string dir = kBase + name + "/";
    root.WriteFile(dir + "requestInfo.bin", Record(side, side, side));
    root.WriteFile(
        dir + "inputFrameInfo_" + std::to_string(side) + "x" + std::to_string(side) + "_0_.yuv",
        std::string(side * side * 3 / 2, 'F'));
}

// A caller's format-0 image of side x side, planes exactly sized, from the heap or a manager.
struct Caller {
    Caller(uint32_t side, bool fromManager) : records(1) {
        ZOLImageBuffer& image = records[0];
        image.width = image.height = image.planeStride = image.sliceHeight = side;
        if (fromManager) {
            manager.AllocBuffer(image, ZOL_BUFFER_TYPE_HEAP);
        } else {
            planes[0].resize(side * side);
            planes[1].resize(side * side / 2);
            image.numberOfPlanes = 2;
            image.Addr[0] = planes[0].data();
            image.Addr[1] = planes[1].data();
        }
        luma = static_cast<uint8_t*>(image.Addr[0]);
        std::memset(luma, kUntouched, side * side);
    }
    ZOLBufferManager manager;
    std::vector<uint8_t> planes[2];
    std::vector<ZOLImageBuffer> records;
    uint8_t* luma;
};

TEST(ReplayHostile, RecordsReusedAcrossReplaysStayWithinTheCallersPlanes) {
    // The first replay leaves the saved geometry in the records; the second one, with the same
    // records, must still be bounded by the planes the caller made.
    const struct {
        const char* what;
        bool fromManager;
        uint32_t saved;
        uint8_t firstByte;  // of the luma plane after the second replay
    } kCases[] = {
        {"own 64x64 planes, 256x256 saved", false, 256, kUntouched},
        {"manager's 64x64 planes, 256x256 saved", true, 256, kUntouched},
        {"own 64x64 planes, 32x32 saved", false, 32, 'F'},
        {"manager's 64x64 planes, 64x64 saved", true, 64, 'F'},
    };
    for (const auto& c : kCases) {
        zoltest::DeviceRoot root;
        WriteFolder(root, "A", c.saved);
        Caller caller(64, c.fromManager);
        ZOLAlgoSimulation simulation;
        ASSERT_TRUE(simulation.readSimulationInfo(caller.records, nullptr, 0)) << c.what;
        std::memset(caller.luma, kUntouched, 64 * 64);
        zoltest::LogCapture log;
        ASSERT_TRUE(simulation.readSimulationInfo(caller.records, nullptr, 0)) << c.what;
        EXPECT_EQ(c.firstByte == kUntouched ? 1u : 0u, log.Count(kNoData)) << c.what;
        EXPECT_EQ(c.firstByte, caller.luma[0]) << c.what;
    }
}

TEST(ReplayHostile, ARecordOfBillionsOfRowsIsRefusedBeforeReading) {
    // 140 bytes: plane 1 of this record is 2^31 - 1 rows of 8 bytes, all at offset 0.
    zoltest::DeviceRoot root;
    root.WriteFile(kBase + "A/requestInfo.bin", Record(8, 0xFFFFFFFEu, 0));
    root.WriteFile(kBase + "A/inputFrameInfo_8x4_0_.yuv", std::string(100, 'F'));
    Caller caller(8, false);
    ZOLAlgoSimulation simulation;
    alarm(20);  // a replay that blocks or stalls ends the test
    ASSERT_TRUE(simulation.readSimulationInfo(caller.records, nullptr, 0));
    zoltest::LogCapture log;
    ASSERT_TRUE(simulation.readSimulationInfo(caller.records, nullptr, 0));
    alarm(0);
    EXPECT_EQ(1u, log.Count(kNoData));
}

TEST(ReplayHostile, FilesThatAreNotRegularAreSkippedWithTheirLines) {
    const struct {
        const char* name;
        bool fifo;  // else a symbolic link to itself
        const char* line;
    } kCases[] = {
        {"inputFrameInfo_8x4_0_.yuv", true, kNoData},
        {"requestInfo.bin", true, kNoData},
        {"database.bin", true, "[algorithm simulation]: read database failed."},
        {"inputFrameInfo_8x4_0_.yuv", false, kNoData},
    };
    for (const auto& c : kCases) {
        zoltest::DeviceRoot root;
        const std::string path = root.MakeDir(kBase + "A") + "/" + c.name;
        ASSERT_EQ(0, c.fifo ? mkfifo(path.c_str(), 0600) : symlink(c.name, path.c_str()));
        Caller caller(8, false);
        char database[4] = {};
        ZOLAlgoSimulation simulation;
        zoltest::LogCapture log;
        alarm(20);  // a replay that blocks or stalls ends the test
        EXPECT_TRUE(simulation.readSimulationInfo(
            caller.records, reinterpret_cast<ZOLDatabaseBaseStruct*>(database), 4));
        EXPECT_EQ(1u, log.Count(c.line)) << c.name;
        EXPECT_EQ(kUntouched, caller.luma[0]) << c.name;
    }
    alarm(0);
}

TEST(ReplayHostile, BadBaseFolderEntriesAreSkippedInTurn) {
    zoltest::DeviceRoot root;
    root.WriteFile(kBase + "stray.txt", "x");
    ASSERT_EQ(0, symlink("loop", (root.MakeDir(kBase) + "loop").c_str()));
    WriteFolder(root, "good", 8);
    Caller caller(8, false);
    ZOLAlgoSimulation simulation;
    zoltest::LogCapture log;
    int replayed = 0;
    for (int i = 0; i < 6; ++i) {
        replayed += simulation.readSimulationInfo(caller.records, nullptr, 0) ? 1 : 0;
    }
    EXPECT_EQ(2, replayed);
    EXPECT_EQ(4u, log.Count("[algorithm simulation]: Current directory don't exit!"));
    EXPECT_EQ('F', caller.luma[0]);
}

}  // namespace
