// The host's log switch. liblog on a host writes to stderr only what is at least as important as
// its minimum priority, which stays at INFO unless a program changes it: the library's D and V
// lines never show. ZOL_HOST_LOG_PRIORITY sets that minimum when the library is loaded, for any
// program that uses it:
//
//   ZOL_HOST_LOG_PRIORITY=V ./app     every line; D: debug and up; I, W, E, F likewise
//
// It only filters what liblog prints: which lines the library produces is still
// ZOLToolsLogLevel's business, and the offline log gets them either way. A device has its own
// switches (the log.tag properties), so a device build has no such file.
#include <android/log.h>

#include <cstdlib>
#include <cstring>

namespace {

int PriorityFromLetter(const char* value) {
    if (value == nullptr || std::strlen(value) != 1) {
        return ANDROID_LOG_UNKNOWN;
    }
    switch (value[0]) {
        case 'V':
        case 'v':
            return ANDROID_LOG_VERBOSE;
        case 'D':
        case 'd':
            return ANDROID_LOG_DEBUG;
        case 'I':
        case 'i':
            return ANDROID_LOG_INFO;
        case 'W':
        case 'w':
            return ANDROID_LOG_WARN;
        case 'E':
        case 'e':
            return ANDROID_LOG_ERROR;
        case 'F':
        case 'f':
            return ANDROID_LOG_FATAL;
        default:
            return ANDROID_LOG_UNKNOWN;
    }
}

// Runs when the library is loaded, before anything can log through it.
[[maybe_unused]] const bool g_hostLogPriorityApplied = [] {
    const char* value = std::getenv("ZOL_HOST_LOG_PRIORITY");
    if (value == nullptr || value[0] == '\0') {
        return false;
    }
    const int priority = PriorityFromLetter(value);
    if (priority == ANDROID_LOG_UNKNOWN) {
        __android_log_write(ANDROID_LOG_WARN, "ZOL",
                            "ZOL_HOST_LOG_PRIORITY: expected one letter of V D I W E F; ignored");
        return false;
    }
    __android_log_set_minimum_priority(priority);
    return true;
}();

}  // namespace
