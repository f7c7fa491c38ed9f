// With the mode property at anything but 1 or 2 the facility does nothing at all. Built twice,
// with the property at 0 and at 3.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "zolalgosimulation.h"
#include "zoltest.h"

TEST(SimulationOff, OnAlgoSimulationNeitherSavesNorReplays) {
    zoltest::DeviceRoot root;
    const std::string base = "/data/vendor/camera/algosimulation/";
    root.WriteFile(base + "A/database.bin", "saved");
    ZOLAlgoSimulation simulation;
    simulation.Initialize();
    std::vector<ZOLImageBuffer> buffers;
    std::string db = "mine!";
    zoltest::LogCapture log;
    EXPECT_TRUE(
        simulation.OnAlgoSimulation(buffers, reinterpret_cast<ZOLDatabaseBaseStruct*>(&db[0]), 5));
    EXPECT_EQ(std::vector<std::string>{"A"}, zoltest::ListDir(root.Resolve(base)));
    EXPECT_EQ("mine!", db);
    EXPECT_TRUE(log.Lines().empty());
}
