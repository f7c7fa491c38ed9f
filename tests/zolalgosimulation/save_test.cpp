// Saving an invocation: folder, request records, frame files, database, cache syncs.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <string>
#include <vector>

#include "algosim_test_support.h"
#include "zolalgosimulation.h"
#include "zoltest.h"

namespace {

using algosimtest::Frame;

class Save : public ::testing::Test {
protected:
    // The one save folder under the base folder (fails the test unless there is exactly one).
    std::string OnlySaveFolder() {
        const auto names = zoltest::ListDir(root_.Resolve(algosimtest::kBaseFolder));
        EXPECT_EQ(1u, names.size());
        return names.empty() ? "" : root_.Resolve(algosimtest::kBaseFolder) + names[0] + "/";
    }

    zoltest::DeviceRoot root_;
    ZOLAlgoSimulation simulation_;
};

TEST_F(Save, WithoutTheBaseFolderSavingFails) {
    root_.MakeDir("/data/vendor/camera");
    Frame frame(8, 4, 8, 4);
    std::vector<ZOLImageBuffer> buffers = {frame.buffer};
    std::string db = "db";
    zoltest::LogCapture log;
    EXPECT_FALSE(simulation_.saveSimulationInfo(buffers, algosimtest::AsDatabase(db), 2));
    EXPECT_TRUE(log.Contains("[algorithm simulation]: make algosimulation directory fail."));
    EXPECT_EQ(std::vector<std::string>(), zoltest::ListDir(root_.Resolve("/data/vendor/camera")));
}

TEST_F(Save, InitializeCreatesTheBaseFolderOnlyWhereItsParentExists) {
    zoltest::LogCapture log;
    simulation_.Initialize();
    EXPECT_TRUE(log.Contains("[algorithm simulation]: make algosimulation directory fail."));

    root_.MakeDir("/data/vendor/camera");
    log.Clear();
    simulation_.Initialize();
    simulation_.Initialize();  // already there: nothing to do
    EXPECT_FALSE(log.Contains("make algosimulation directory fail."));
    struct stat st;
    ASSERT_EQ(0, stat(root_.Resolve(algosimtest::kBaseFolder).c_str(), &st));
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(0700u, st.st_mode & 0777);
}

TEST_F(Save, WritesRecordsFramesWithTheFirstBuffersStrideAndTheDatabase) {
    root_.MakeDir("/data/vendor/camera");
    simulation_.Initialize();
    // The second buffer has a stride of its own; it is dumped with the first one's.
    Frame first(6, 4, 16, 5);
    Frame second(3, 2, 4, 2);
    first.Paint(1);
    second.Paint(2);
    second.planes[0].resize(16 * 2, 0);  // room for rows 16 bytes apart
    second.planes[1].resize(16, 0);
    second.buffer.Addr[0] = second.planes[0].data();
    second.buffer.Addr[1] = second.planes[1].data();
    std::vector<ZOLImageBuffer> buffers = {first.buffer, second.buffer};
    std::string db = algosimtest::DatabaseFor(5);

    ASSERT_TRUE(simulation_.saveSimulationInfo(buffers, algosimtest::AsDatabase(db), db.size()));

    const std::string folder = OnlySaveFolder();
    const std::string base = root_.Resolve(algosimtest::kBaseFolder);
    ASSERT_EQ(base, folder.substr(0, base.size()));
    EXPECT_TRUE(algosimtest::IsSaveFolderName(folder.substr(base.size(), 34))) << folder;
    EXPECT_EQ(base.size() + 35, folder.size());
    EXPECT_EQ(std::vector<std::string>({"database.bin", "inputFrameInfo_3x2_1_.yuv",
                                        "inputFrameInfo_6x4_0_.yuv", "requestInfo.bin"}),
              zoltest::ListDir(folder));
    EXPECT_EQ(Frame::Payload(6, 4, 1), zoltest::ReadFile(folder + "inputFrameInfo_6x4_0_.yuv"));
    std::string secondFile;
    secondFile.append(reinterpret_cast<const char*>(second.planes[0].data()), 3);
    secondFile.append(reinterpret_cast<const char*>(second.planes[0].data()) + 16, 3);
    secondFile.append(reinterpret_cast<const char*>(second.planes[1].data()), 3);
    EXPECT_EQ(secondFile, zoltest::ReadFile(folder + "inputFrameInfo_3x2_1_.yuv"));
    EXPECT_EQ(db, zoltest::ReadFile(folder + "database.bin"));

    // The request records keep each buffer's own stride.
    const std::string records = zoltest::ReadFile(folder + "requestInfo.bin");
    ASSERT_EQ(80u, records.size());
    uint32_t stride1;
    memcpy(&stride1, records.data() + 40 + 12, 4);
    EXPECT_EQ(4u, stride1);
}

TEST_F(Save, OnlyTheFirstPlanesDescriptorIsSynchronisedAroundEachDump) {
    root_.MakeDir("/data/vendor/camera");
    simulation_.Initialize();
    Frame frame(4, 2, 4, 2);
    frame.buffer.fd[0] = 501;
    frame.buffer.fd[1] = 502;
    std::vector<ZOLImageBuffer> buffers = {frame.buffer};
    zoltest::LogCapture log;
    ASSERT_TRUE(simulation_.saveSimulationInfo(buffers, nullptr, 0));
    EXPECT_EQ(1u, log.Count("Start CPU Sync Buffer, fd: 501, sync type: 3,"));
    EXPECT_EQ(1u, log.Count("End CPU Sync Buffer, fd: 501,"));
    EXPECT_EQ(1u, log.Count("Start CPU Sync Buffer"));
    EXPECT_EQ(1u, log.Count("End CPU Sync Buffer"));

    // A plane count of 0 (the first buffer's) means no synchronisation at all.
    buffers[0].numberOfPlanes = 0;
    log.Clear();
    ASSERT_TRUE(simulation_.saveSimulationInfo(buffers, nullptr, 0));
    EXPECT_EQ(0u, log.Count("CPU Sync Buffer"));
}

TEST_F(Save, AnEmptyRequestSavesEmptyRecordsAndTheDatabase) {
    root_.MakeDir("/data/vendor/camera");
    simulation_.Initialize();
    std::vector<ZOLImageBuffer> none;
    std::string db = "block";
    ASSERT_TRUE(simulation_.saveSimulationInfo(none, algosimtest::AsDatabase(db), 5));
    const std::string folder = OnlySaveFolder();
    EXPECT_EQ(std::vector<std::string>({"database.bin", "requestInfo.bin"}),
              zoltest::ListDir(folder));
    EXPECT_EQ("", zoltest::ReadFile(folder + "requestInfo.bin"));
    EXPECT_EQ("block", zoltest::ReadFile(folder + "database.bin"));
}

TEST_F(Save, OnAlgoSimulationSavesWhenThePropertyIsUnset) {
    root_.MakeDir("/data/vendor/camera");
    simulation_.Initialize();
    Frame frame(4, 2, 4, 2);
    frame.Paint(3);
    std::vector<ZOLImageBuffer> buffers = {frame.buffer};
    ASSERT_TRUE(simulation_.OnAlgoSimulation(buffers, nullptr, 0));
    EXPECT_EQ(Frame::Payload(4, 2, 3),
              zoltest::ReadFile(OnlySaveFolder() + "inputFrameInfo_4x2_0_.yuv"));
}

}  // namespace
