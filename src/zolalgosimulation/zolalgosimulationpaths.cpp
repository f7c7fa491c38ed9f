#include "zolalgosimulation/internal/zolalgosimulationinternal.h"

#include <cstdio>
#include <string>

#include "platform/devicepath.h"
#include "zolalgosimulation/internal/zolsavefoldernames.h"

namespace zol {
namespace algosim {

namespace {

constexpr const char* kCameraFolder = "/data/vendor/camera";
constexpr const char* kSimulationFolder = "algosimulation/";

}  // namespace

void BaseFolderPath(char (&out)[kFolderPathBytes]) {
    snprintf(out, sizeof(out), "%s/%s", DevicePath(kCameraFolder).c_str(), kSimulationFolder);
}

void SaveFolderPath(char (&out)[kFolderPathBytes], const struct tm& local, long microseconds) {
    const int milliseconds = static_cast<int>(static_cast<double>(microseconds) / 1000.0);
    snprintf(out, sizeof(out), "%s/%s%s%02d%02d%02d%02d%02d%03d/",
             DevicePath(kCameraFolder).c_str(), kSimulationFolder, kSaveFolderPrefix,
             local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
             milliseconds);
}

void FrameFilePath(char (&out)[kFilePathBytes], const char* folder, uint32_t width, uint32_t height,
                   size_t index) {
    char name[kFilePathBytes];
    snprintf(name, sizeof(name), kFrameFileFormat, static_cast<int>(width),
             static_cast<int>(height), static_cast<int>(index));
    snprintf(out, sizeof(out), "%s%s", folder, name);
}

}  // namespace algosim
}  // namespace zol
