#include "zoltoolsdef/zolfatal.h"

#include <android/log.h>

#include <cstdio>
#include <cstdlib>

namespace zol {

void FatalError(const char* file, int line, const char* what) {
    char text[256];
    std::snprintf(text, sizeof(text), "%s:%d fatal: %s", file, line, what);
    __android_log_write(ANDROID_LOG_FATAL, "ZOL", text);
    std::abort();
}

}  // namespace zol
