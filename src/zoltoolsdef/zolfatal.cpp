#include "zoltoolsdef/internal/zolfatal.h"

#include <android/log.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zol {

void FatalError(const char* file, int line, const char* what) {
    // Callers pass either a base name or a full path (__builtin_FILE): print the base name.
    const char* slash = std::strrchr(file, '/');
    char text[256];
    std::snprintf(text, sizeof(text), "%s:%d fatal: %s", slash != nullptr ? slash + 1 : file, line,
                  what);
    __android_log_write(ANDROID_LOG_FATAL, "ZOL", text);
    std::abort();
}

}  // namespace zol
