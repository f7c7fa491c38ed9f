// The debug log: one process-wide level and five severity functions that write to the Android
// log under the tag "ZOL" and hand the same text to the offline log.
//
// ZOLToolsLogLevel is read once, from the property "persist.vendor.camera.zoltools.loglevel"
// (default 5), when the library is loaded; writing the global afterwards takes effect at the
// next call site. 0 or less silences everything, 5 or more lets everything through:
//
//   function        passes at level >=   Android priority   offline log entry point
//   ZOLDebugLogE    1                    ERROR              ZOLOfflineLog::ZOLOfflineLogE
//   ZOLDebugLogW    2                    WARN               ZOLOfflineLog::ZOLOfflineLogW
//   ZOLDebugLogD    3                    DEBUG              ZOLOfflineLog::ZOLOfflineLogD
//   ZOLDebugLogI    4                    INFO               ZOLOfflineLog::ZOLOfflineLogI
//   ZOLDebugLogV    5                    VERBOSE            ZOLOfflineLog::ZOLOfflineLogV
//
// Debug (3) passes before info (4) on purpose. The level test belongs at the call site, before
// any formatting: use the guards ZOL_LOGE ... ZOL_LOGV, which cost one load and one compare
// when the message is suppressed and do not evaluate its arguments.
//
//   ZOL_LOGD("[%s] %s:%d %s() Free buffer: %p", name, ZOL_FILE, __LINE__, "FreeBuffer", p);
//
// The five functions have internal linkage (each user of this header has its own copy) and
// keep no state: any thread may call them at any time. A message is cut to 1,023 characters.
#pragma once

#include <android/log.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "zolexport.h"

// Inside the library (ZOL_BUILDING_ZOLTOOLS, set by its build) the text reaches the offline log
// through an out-of-line function of zoltoolsdef.cpp, so that the units that log do not compile
// the offline log's and the thread pool's headers. A user's copy calls the offline log itself.
#ifndef ZOL_BUILDING_ZOLTOOLS
#include "zolofflinelog.h"
#endif

// The process-wide debug log level.
ZOL_EXPORT extern int32_t ZOLToolsLogLevel;

// The level each severity needs.
#define ZOL_LOG_THRESHOLD_E 1
#define ZOL_LOG_THRESHOLD_W 2
#define ZOL_LOG_THRESHOLD_D 3
#define ZOL_LOG_THRESHOLD_I 4
#define ZOL_LOG_THRESHOLD_V 5

// The base name of the current source file, for the "%s:%d %s() " fields of log lines.
#define ZOL_FILE __FILE_NAME__

// True when messages of the given threshold pass. The global is read afresh every time (a
// relaxed atomic load: the same single instruction as a plain load, and no data race with a
// caller that changes the level while other threads log).
#define ZOL_LOG_ON(threshold) (__atomic_load_n(&ZOLToolsLogLevel, __ATOMIC_RELAXED) >= (threshold))

#define ZOL_LOGE(...)                          \
    do {                                       \
        if (ZOL_LOG_ON(ZOL_LOG_THRESHOLD_E)) { \
            ZOLDebugLogE(__VA_ARGS__);         \
        }                                      \
    } while (0)
#define ZOL_LOGW(...)                          \
    do {                                       \
        if (ZOL_LOG_ON(ZOL_LOG_THRESHOLD_W)) { \
            ZOLDebugLogW(__VA_ARGS__);         \
        }                                      \
    } while (0)
#define ZOL_LOGD(...)                          \
    do {                                       \
        if (ZOL_LOG_ON(ZOL_LOG_THRESHOLD_D)) { \
            ZOLDebugLogD(__VA_ARGS__);         \
        }                                      \
    } while (0)
#define ZOL_LOGI(...)                          \
    do {                                       \
        if (ZOL_LOG_ON(ZOL_LOG_THRESHOLD_I)) { \
            ZOLDebugLogI(__VA_ARGS__);         \
        }                                      \
    } while (0)
#define ZOL_LOGV(...)                          \
    do {                                       \
        if (ZOL_LOG_ON(ZOL_LOG_THRESHOLD_V)) { \
            ZOLDebugLogV(__VA_ARGS__);         \
        }                                      \
    } while (0)

namespace zol {
namespace debuglog {

constexpr int kBufferSize = 1024;

// Hands the formatted text to the entry point of the offline log `Log` (ZOLOfflineLog) that the
// table above gives for the Android priority `priority`. A template, so that this header names
// the entry points without needing the offline log's declaration.
template <typename Log>
inline void OfflineVia(int priority, const char* text) {
    switch (priority) {
        case ANDROID_LOG_ERROR:
            Log::ZOLOfflineLogE("%s", text);
            break;
        case ANDROID_LOG_WARN:
            Log::ZOLOfflineLogW("%s", text);
            break;
        case ANDROID_LOG_DEBUG:
            Log::ZOLOfflineLogD("%s", text);
            break;
        case ANDROID_LOG_INFO:
            Log::ZOLOfflineLogI("%s", text);
            break;
        default:
            Log::ZOLOfflineLogV("%s", text);
            break;
    }
}

#ifdef ZOL_BUILDING_ZOLTOOLS
// zoltoolsdef.cpp: OfflineVia<ZOLOfflineLog>.
__attribute__((visibility("hidden"))) void Offline(int priority, const char* text);
#else
static inline void Offline(int priority, const char* text) {
    OfflineVia<ZOLOfflineLog>(priority, text);
}
#endif

// Formats into a 1,024-byte buffer, writes it to the Android log and hands it to the offline
// log.
static inline void Write(int priority, const char* fmt, va_list args) {
    char buffer[kBufferSize] = {};
    vsnprintf(buffer, sizeof(buffer), fmt, args);
    __android_log_write(priority, "ZOL", buffer);
    // The offline log formats the text once more, as a format of its own. There only "%%" may
    // mean anything (it becomes "%", as vsnprintf makes it); any other conversion the text
    // carries (a "%s" or "%n" from a file name) is kept as it stands and never reads an
    // argument. So "%%" is collapsed here and the result passed as a plain string.
    char* percent = strchr(buffer, '%');
    if (percent != nullptr) {
        char* out = percent;
        for (const char* in = percent; *in != '\0'; ++in) {
            *out++ = *in;
            if (in[0] == '%' && in[1] == '%') {
                ++in;
            }
        }
        *out = '\0';
    }
    Offline(priority, buffer);
}

}  // namespace debuglog
}  // namespace zol

#define ZOL_DEBUGLOG_DEFINE(name, priority)                                                       \
    __attribute__((format(printf, 1, 2), unused)) static inline void name(const char* fmt, ...) { \
        va_list args;                                                                             \
        va_start(args, fmt);                                                                      \
        ::zol::debuglog::Write(priority, fmt, args);                                              \
        va_end(args);                                                                             \
    }

ZOL_DEBUGLOG_DEFINE(ZOLDebugLogE, ANDROID_LOG_ERROR)
ZOL_DEBUGLOG_DEFINE(ZOLDebugLogW, ANDROID_LOG_WARN)
ZOL_DEBUGLOG_DEFINE(ZOLDebugLogD, ANDROID_LOG_DEBUG)
ZOL_DEBUGLOG_DEFINE(ZOLDebugLogI, ANDROID_LOG_INFO)
ZOL_DEBUGLOG_DEFINE(ZOLDebugLogV, ANDROID_LOG_VERBOSE)

#undef ZOL_DEBUGLOG_DEFINE
