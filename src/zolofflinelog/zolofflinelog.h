// ZOLOfflineLog: the process-wide offline log. (Being written: the logging work replaces this
// header's comment and the stub implementation.)
#pragma once

#include <cstdint>
#include <list>
#include <mutex>
#include <string>

#include "zolexport.h"
#include "zolthreadpool.h"

enum ZOLOfflineLogLevel : int32_t {
    ZOL_OFFLINE_LOG_E = 1,
    ZOL_OFFLINE_LOG_W = 2,
    ZOL_OFFLINE_LOG_D = 3,
    ZOL_OFFLINE_LOG_I = 4,
    ZOL_OFFLINE_LOG_V = 5,
};

// One queued line: exactly 2,048 bytes holding a zero-terminated text.
struct ZOLOfflineLogParameter {
    char logLine[2048];
};
static_assert(sizeof(ZOLOfflineLogParameter) == 2048, "a line block is 2,048 bytes");

class ZOL_EXPORT ZOLOfflineLog {
public:
    static ZOLOfflineLog* GetInstance();

    static void ZOLOfflineLogE(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    static void ZOLOfflineLogW(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    static void ZOLOfflineLogD(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    static void ZOLOfflineLogI(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    static void ZOLOfflineLogV(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    static void ZOLOfflineLogECapture(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    static void ZOLOfflineLogWCapture(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    static void ZOLOfflineLogDCapture(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    static void ZOLOfflineLogICapture(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    static void ZOLOfflineLogVCapture(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

    void PushLogToLogPool(const char* msg, ZOLOfflineLogLevel level, bool capture);
    static bool ReadEnableFromOverrideSettingsFile();
    static void SaveLog(void* data, unsigned int size);
    bool FlushLogPoolToFile2(ZOLOfflineLogParameter* param);
    bool FlushLogPoolToFile();

    ZOLOfflineLog();
    ~ZOLOfflineLog();
    ZOLOfflineLog(const ZOLOfflineLog&) = delete;
    ZOLOfflineLog& operator=(const ZOLOfflineLog&) = delete;

private:
    bool m_enable = false;
    std::mutex m_fileListMutex;
    char* m_logPool = nullptr;
    uint32_t m_logPoolSize = 0;
    ZOLThreadPool m_threadPool;
    std::list<std::string> m_logFileList;
    std::mutex m_logFileMutex;
    uint32_t m_curLogFileSize = 10485760;
    std::string m_curLogFileName;
    bool m_captureEnable = false;
};
