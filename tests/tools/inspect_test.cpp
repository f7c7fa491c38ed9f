// Request records, save folders and the inspect command.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include "fileio.h"
#include "pngio.h"
#include "simfolder.h"
#include "toolstest.h"
#include "zoltest.h"

namespace {

using toolstest::Capture;
using toolstest::Golden;

TEST(RequestInfo, RecordsDecodeInFileOrder) {
    zoltool::RequestRecord a;
    a.format = 0;
    a.width = 4000;
    a.height = 3000;
    a.planeStride = 4096;
    a.sliceHeight = 3072;
    a.numberOfPlanes = 2;
    a.fd[0] = 7;
    a.fd[1] = -1;
    zoltool::RequestRecord b = a;
    b.format = 7;
    b.width = 640;
    std::vector<uint8_t> bytes = zoltool::EncodeRequestInfo({a, b, a});
    ASSERT_EQ(120u, bytes.size());

    std::vector<std::string> problems;
    auto records = zoltool::ParseRequestInfo(bytes, "r.bin", problems);
    EXPECT_TRUE(problems.empty());
    ASSERT_EQ(3u, records.size());
    EXPECT_EQ(4000u, records[0].width);
    EXPECT_EQ(3072u, records[0].sliceHeight);
    EXPECT_EQ(-1, records[0].fd[1]);
    EXPECT_EQ(7u, records[1].format);
    EXPECT_EQ(640u, records[1].width);

    EXPECT_TRUE(zoltool::ParseRequestInfo({}, "empty.bin", problems).empty());
    EXPECT_TRUE(problems.empty()) << "an empty request is a valid save";
}

TEST(RequestInfo, GarbageIsNamedRecordByRecord) {
    zoltool::RequestRecord bad;
    bad.format = 99;
    bad.numberOfPlanes = 5;
    bad.width = 100000;
    std::vector<uint8_t> bytes = zoltool::EncodeRequestInfo({zoltool::RequestRecord{}, bad});
    bytes.push_back(0);
    std::vector<std::string> problems;
    auto records = zoltool::ParseRequestInfo(bytes, "r.bin", problems);
    EXPECT_EQ(2u, records.size()) << "whole records are still decoded";
    ASSERT_EQ(4u, problems.size());
    EXPECT_EQ("r.bin: 81 bytes is not a whole number of 40-byte records", problems[0]);
    EXPECT_EQ("r.bin: record 1: format 99 is not a format code (0 to 14)", problems[1]);
    EXPECT_EQ("r.bin: record 1: numberOfPlanes 5 (an image has at most 4)", problems[2]);
    EXPECT_NE(std::string::npos, problems[3].find("record 1: size 100000x0"));
}

TEST(SaveFolder, FrameFileNames) {
    uint32_t w, h;
    int i;
    EXPECT_TRUE(zoltool::ParseFrameFileName("inputFrameInfo_4000x3000_1_.yuv", w, h, i));
    EXPECT_EQ(4000u, w);
    EXPECT_EQ(3000u, h);
    EXPECT_EQ(1, i);
    EXPECT_FALSE(zoltool::ParseFrameFileName("inputFrameInfo_4000x3000_1_.yuv.png", w, h, i));
    EXPECT_FALSE(zoltool::ParseFrameFileName("inputFrameInfo_4000x3000_.yuv", w, h, i));
    EXPECT_FALSE(zoltool::ParseFrameFileName("requestInfo.bin", w, h, i));
}

TEST(SaveFolder, PathMayBeASaveFolderTheBaseFolderOrADeviceRoot) {
    std::vector<std::string> folders;
    std::string error;
    const std::string base = Golden("inspect/algosimulation");
    ASSERT_TRUE(zoltool::FindSaveFolders(base, folders, error)) << error;
    ASSERT_EQ(2u, folders.size());
    EXPECT_EQ(base + "/SimulationIntputInfo_1121101500123", folders[0]);

    ASSERT_TRUE(zoltool::FindSaveFolders(folders[1], folders, error)) << error;
    EXPECT_EQ(1u, folders.size());

    zoltest::DeviceRoot root;
    root.WriteFile(
        "/data/vendor/camera/algosimulation/SimulationIntputInfo_0101000000000/"
        "requestInfo.bin",
        "");
    ASSERT_TRUE(zoltool::FindSaveFolders(root.path(), folders, error)) << error;
    EXPECT_EQ(1u, folders.size());

    EXPECT_FALSE(zoltool::FindSaveFolders(root.path() + "/nothing", folders, error));
    EXPECT_EQ(root.path() + "/nothing: no such directory", error);
    root.MakeDir("/empty");
    EXPECT_FALSE(zoltool::FindSaveFolders(root.Resolve("/empty"), folders, error));
    EXPECT_NE(std::string::npos, error.find("no save folders")) << error;
}

TEST(Inspect, GoldenBaseFolder) {
    auto result = Capture([](const zoltool::Streams& io) {
        return zoltool::RunInspect({Golden("inspect/algosimulation"), ""}, io);
    });
    EXPECT_EQ(zoltool::kExitBadInput, result.status) << "the second save is damaged";
    EXPECT_EQ(zoltest::ReadFile(Golden("inspect-expected.txt")), result.out);
    const std::string bad = Golden("inspect/algosimulation/SimulationIntputInfo_1121101500456/");
    EXPECT_NE(std::string::npos,
              result.err.find(bad + "inputFrameInfo_8x4_0_.yuv: 45 bytes, but record 0 (format "
                                    "0 NV21, 8x4) needs 48"))
        << result.err;
    EXPECT_NE(std::string::npos,
              result.err.find(bad + "inputFrameInfo_8x4_1_.yuv: no record 1 in requestInfo.bin"))
        << result.err;
}

TEST(Inspect, GarbageRequestFileFailsWithoutGuessingFrames) {
    auto result = Capture([](const zoltool::Streams& io) {
        return zoltool::RunInspect({Golden("inspect/garbage"), ""}, io);
    });
    EXPECT_EQ(zoltool::kExitBadInput, result.status);
    EXPECT_NE(std::string::npos,
              result.err.find("requestInfo.bin: 56 bytes is not a whole number of 40-byte "
                              "records"))
        << result.err;
    EXPECT_EQ(std::string::npos, result.err.find("inputFrameInfo_")) << result.err;
}

TEST(Inspect, PngRendersTheWholeFramesOnly) {
    toolstest::TempDir dir;
    auto result = Capture([&](const zoltool::Streams& io) {
        return zoltool::RunInspect({Golden("inspect/algosimulation"), dir.path()}, io);
    });
    EXPECT_EQ(zoltool::kExitBadInput, result.status);
    EXPECT_NE(std::string::npos, result.out.find("2 PNGs written under " + dir.path()));
    zoltool::RgbaImage image;
    std::string error;
    ASSERT_TRUE(zoltool::ReadPng(dir / "SimulationIntputInfo_1121101500123/"
                                       "inputFrameInfo_8x4_0_.png",
                                 image, error))
        << error;
    EXPECT_EQ(zoltest::ReadFile(Golden("convert/frame_8x4.rgba")),
              std::string(image.pixels.begin(), image.pixels.end()));
    EXPECT_TRUE(zoltool::ReadPng(dir / "SimulationIntputInfo_1121101500123/"
                                       "inputFrameInfo_4x2_1_.png",
                                 image, error))
        << error;
    EXPECT_EQ(4u, image.width);
    // The short frame of the damaged save is not rendered.
    EXPECT_TRUE(zoltest::ListDir(dir / "SimulationIntputInfo_1121101500456").empty());
}

TEST(Inspect, WhatAReplayWouldTripOverIsPointedOut) {
    zoltest::DeviceRoot root;
    const std::string save =
        "/data/vendor/camera/algosimulation/SimulationIntputInfo_0101000000000/";
    zoltool::RequestRecord record;
    record.width = 4;
    record.height = 2;
    record.planeStride = 4;
    record.sliceHeight = 2;
    record.numberOfPlanes = 2;
    std::vector<uint8_t> request = zoltool::EncodeRequestInfo({record, record, record, record});
    root.WriteFile(save + "requestInfo.bin", std::string(request.begin(), request.end()));
    for (int i = 0; i < 4; ++i) {
        root.WriteFile(save + "inputFrameInfo_4x2_" + std::to_string(i) + "_.yuv",
                       std::string(12, 'y'));
    }
    root.WriteFile(save + "database.bin", "db");
    root.WriteFile("/data/vendor/camera/algosimulation/notes.txt", "stray");

    auto result = Capture([&](const zoltool::Streams& io) {
        return zoltool::RunInspect({root.path(), ""}, io);
    });
    EXPECT_EQ(zoltool::kExitOk, result.status) << result.err;
    EXPECT_NE(std::string::npos,
              result.out.find("inputFrameInfo_4x2_3_.yuv                        12         12  "
                              "ok, not replayed (index 3 or more)"))
        << result.out;
    EXPECT_NE(std::string::npos, result.err.find("algosimulation/notes.txt is not a save folder"))
        << result.err;
}

TEST(Inspect, UnwritablePngDirectoryIsNamed) {
    toolstest::TempDir dir;
    std::string error;
    ASSERT_TRUE(zoltool::WriteWholeFile(dir / "file", {1}, error));
    auto result = Capture([&](const zoltool::Streams& io) {
        return zoltool::RunInspect({Golden("inspect/algosimulation"), dir / "file"}, io);
    });
    EXPECT_EQ(zoltool::kExitBadInput, result.status);
    EXPECT_NE(std::string::npos, result.err.find(dir / "file")) << result.err;
}

}  // namespace
