#include "zolpsi.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/uniquefd.h"
#include "zoltoolsdef.h"

namespace {

constexpr int kLineSize = 1024;

// Kernel files: these are real /proc paths on every system, not device data paths.
constexpr const char kCpuPath[] = "/proc/pressure/cpu";
constexpr const char kMemoryPath[] = "/proc/pressure/memory";
constexpr const char kIoPath[] = "/proc/pressure/io";
constexpr const char kSomeAvg10[] = "some avg10=";

}  // namespace

bool ZOLPSI::GetDataByPathAndKeyword(const char* path, const char* keyword, float* value) {
    if (path == nullptr) {
        ZOL_LOGI("%s:%d %s() [%p] pPath is null", ZOL_FILE, __LINE__, "GetDataByPathAndKeyword",
                 this);
        return false;
    }
    zol::UniqueFile file(std::fopen(path, "r"));
    if (!file) {
        ZOL_LOGI("%s:%d %s() [%p] failed open file path:%s", ZOL_FILE, __LINE__,
                 "GetDataByPathAndKeyword", this, path);
        return false;
    }
    char line[kLineSize] = {};
    while (std::fgets(line, sizeof(line), file.get()) != nullptr) {
        const char* found = std::strstr(line, keyword);
        if (found != nullptr) {
            *value = static_cast<float>(std::strtod(found + std::strlen(keyword), nullptr));
            return true;
        }
    }
    return false;
}

float ZOLPSI::GetPsiCpuSomeAvg10() {
    float value = 0.0f;
    if (!GetDataByPathAndKeyword(kCpuPath, kSomeAvg10, &value)) {
        ZOL_LOGI("%s:%d %s() [%p] get data failed!", ZOL_FILE, __LINE__, "GetPsiCpuSomeAvg10",
                 this);
    }
    return value;
}

float ZOLPSI::GetPsiMemSomeAvg10() {
    float value = 0.0f;
    if (!GetDataByPathAndKeyword(kMemoryPath, kSomeAvg10, &value)) {
        ZOL_LOGI("%s:%d %s() [%p] get data failed!", ZOL_FILE, __LINE__, "GetPsiMemSomeAvg10",
                 this);
    }
    return value;
}

float ZOLPSI::GetPsiIoSomeAvg10() {
    float value = 0.0f;
    if (!GetDataByPathAndKeyword(kIoPath, kSomeAvg10, &value)) {
        ZOL_LOGI("%s:%d %s() [%p] get data failed!", ZOL_FILE, __LINE__, "GetPsiIoSomeAvg10", this);
    }
    return value;
}
