// With the mode property at anything but 1 or 2 the facility does nothing at all. Built twice,
// with the property at 0 and at 3.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "algosim_test_support.h"
#include "zolalgosimulation.h"
#include "zolalgosimulation/zolalgosimulationinternal.h"
#include "zoltest.h"

namespace {

TEST(SimulationOff, OnAlgoSimulationTouchesNoFile) {
    const char* property = getenv("persist.vendor.camera.capture.algosimulation.dump");
    ASSERT_NE(nullptr, property);
    EXPECT_EQ(atoi(property), ZOLAlgoSimulationMode);

    zoltest::DeviceRoot root;
    root.MakeDir(algosimtest::kBaseFolder);
    algosimtest::Frame saved(8, 4, 8, 4);
    root.WriteFile(std::string(algosimtest::kBaseFolder) + "A/inputFrameInfo_8x4_0_.yuv",
                   algosimtest::Frame::Payload(8, 4, 1));
    root.WriteFile(std::string(algosimtest::kBaseFolder) + "A/database.bin", "saved");

    ZOLAlgoSimulation simulation;
    simulation.Initialize();
    algosimtest::Frame frame(8, 4, 8, 4);
    std::vector<ZOLImageBuffer> buffers = {frame.buffer};
    std::string db = "mine!";
    zoltest::LogCapture log;
    EXPECT_TRUE(simulation.OnAlgoSimulation(buffers, algosimtest::AsDatabase(db), 5));
    EXPECT_TRUE(simulation.OnAlgoSimulation(buffers, algosimtest::AsDatabase(db), 5));

    EXPECT_EQ(std::vector<std::string>({"A"}),
              zoltest::ListDir(root.Resolve(algosimtest::kBaseFolder)));
    EXPECT_EQ(std::vector<std::string>({"database.bin", "inputFrameInfo_8x4_0_.yuv"}),
              zoltest::ListDir(root.Resolve(std::string(algosimtest::kBaseFolder) + "A")));
    EXPECT_EQ("mine!", db);
    EXPECT_EQ(std::vector<uint8_t>(32, algosimtest::kUntouched), frame.planes[0]);
    EXPECT_TRUE(log.Lines().empty());
}

}  // namespace
