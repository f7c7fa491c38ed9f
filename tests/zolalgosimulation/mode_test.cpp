// With the mode property at anything but 1 or 2 the facility does nothing at all. Built twice,
// with the property at 0 and at 3.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "zolalgosimulation.h"
#include "zoltest.h"

TEST(SimulationOff, OnAlgoSimulationTouchesNothing) {
    zoltest::DeviceRoot root;
    const std::string base = "/data/vendor/camera/algosimulation/";
    zoltest::TestImage saved(0, 8, 4, 8, 32, 1), image(0, 8, 4, 8, 32, 2);
    root.WriteFile(base + "A/inputFrameInfo_8x4_0_.yuv", saved.Rows(0, 4, 8) + saved.Rows(1, 2, 8));
    root.WriteFile(base + "A/database.bin", "saved");
    ZOLAlgoSimulation simulation;
    simulation.Initialize();
    std::vector<ZOLImageBuffer> buffers = {image.buffer};
    const std::vector<uint8_t> before = image.planes[0];
    std::string db = "mine!";
    zoltest::LogCapture log;
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(simulation.OnAlgoSimulation(
            buffers, reinterpret_cast<ZOLDatabaseBaseStruct*>(&db[0]), 5));
    }
    EXPECT_EQ(std::vector<std::string>{"A"}, zoltest::ListDir(root.Resolve(base)));
    EXPECT_EQ(2u, zoltest::ListDir(root.Resolve(base + "A")).size());
    EXPECT_EQ("mine!", db);
    EXPECT_EQ(before, image.planes[0]);
    EXPECT_TRUE(log.Lines().empty());
}
