// ZOLOfflineLog: the process-wide offline log, which keeps a copy of log lines in text files on
// the device.
//
// Every message the debug log lets through (zoltoolsdef.h) is handed to the entry point of its
// severity; wrapper code may call the entry points directly too. The caller's thread only stamps
// the line and queues it; one of the object's ten ZOLThreadPool workers appends it to the current
// file under "/data/vendor/camera/offlinelog/" (a device path: below $ZOL_DEVICE_ROOT on the
// host). The library never creates that directory; while it is missing lines are dropped and
// counted, and logging resumes by itself once it exists. Only regular files are written: a
// FIFO or anything else in a log file's place is a file that would not open. A line the file
// takes only in part (a full disk) is cut back out of it and counted, so a file holds whole
// lines only.
//
// A line reads
//   "MM-DD hh:mm:ss:nnnnnnnnn  pppp  tttt L ZOL: <message>\n"
// (local time with nanoseconds, process id, kernel thread id, level letter E/W/D/I/V; any other
// level prints "V"). It is cut to 2,047 characters, so an overlong line loses its newline. A
// file is named "ZOLOfflineLog_YYYY-MM-DD--hh-mm-ss-uuuuuu.txt" after its creation time; a line
// that would bring the current file to 10,485,760 bytes opens a new one, and of the files this
// object created only the newest 300 are kept on disk.
//
// Enabling is decided once, in the constructor: the property
// "persist.vendor.camera.zoltools.offlinelog" (1 or more on; 0 or below -1 off) or, when it is
// unset or -1, the settings file "/vendor/etc/camera/camxoverridesettings.txt", whose last line
// of the form "ZOLOfflineLog...=..." containing "true" or "false" (any case) decides. The ten
// workers run whether or not the log is on; a disabled log takes no time and no memory per call.
//
// Lifetime: GetInstance() builds the object on first use and it is destroyed at process exit.
// The destructor discards lines still queued (a line being written is finished) and joins the
// workers; entry points called after that (from later static destructors) do nothing.
//
// fork: every lock below is held across fork, so the child finds them free and the lists
// whole. The child has no workers and none of the parent's queued lines; its first line
// starts ten workers again, and its lines are stamped with its own process and thread ids.
//
// Locks: m_logFileMutex guards m_curLogFileSize and m_curLogFileName; m_fileListMutex guards
// m_logFileList; they are taken in that order when both are held. m_logPoolMutex serialises
// AppendToLogPool. The pool's m_taskMutex (taken by callers to queue a line) is never held with
// any of them, except by the fork handlers, which take the pool's locks last. FlushLogPoolToFile
// takes no lock: see there.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <list>
#include <string>

#include "zolexport.h"
#include "zolmutex.h"
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
    // Size of the memory pool, and the size at which a log file is closed for good.
    static constexpr uint32_t kLogPoolSize = 10485760;
    static constexpr uint32_t kMaxLogFileSize = 10485760;
    // Files of this object kept on disk.
    static constexpr size_t kMaxLogFiles = 300;
    static constexpr unsigned int kWorkerCount = 10;

    // The process-wide object, built on the first call.
    static ZOLOfflineLog* GetInstance();

    // printf-style; queue one line of that severity when the log is enabled. The ...Capture
    // variants are gated by m_captureEnable instead of m_enable (the two are always equal).
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

    // Stamps msg and queues the line for a worker. Returns at once when the gate of `capture`
    // is closed. A line block that cannot be allocated drops the line (DroppedLinesNoMemory).
    void PushLogToLogPool(const char* msg, ZOLOfflineLogLevel level, bool capture);

    // Reads the settings file: true when it switches the log on. Needs no object.
    static bool ReadEnableFromOverrideSettingsFile();

    // Task function of a queued line: writes a block of exactly 2,048 bytes through
    // FlushLogPoolToFile2; anything else is ignored. The pool frees the block.
    static void SaveLog(void* data, unsigned int size);
    // Appends one line to the current file, first starting a new file if the line would bring
    // it to kMaxLogFileSize. False (and the line dropped, DroppedLinesNoFile) when the file
    // would not open.
    bool FlushLogPoolToFile2(ZOLOfflineLogParameter* param)
        ZOL_EXCLUDES(m_logFileMutex, m_fileListMutex);
    // Writes the memory pool's text into a new file of its own and empties the pool; the file
    // is listed with the others. With the log disabled (no pool) the file is still created,
    // empty. False when the file would not open (or memory ran out). Takes no lock: the caller
    // makes sure no line is being written (WaitForQueuedLines, and no logging meanwhile) and
    // no AppendToLogPool runs while it does.
    bool FlushLogPoolToFile();

    // Appends text (len bytes, no terminating zero needed) to the memory pool, for a later
    // FlushLogPoolToFile. All or nothing: text that does not fit whole in what is left of the
    // pool is refused, so the pool never holds a cut line; the pool keeps a terminating zero
    // after its text. False when refused or when the log is disabled (no pool). Any thread.
    bool AppendToLogPool(const char* text, uint32_t len) ZOL_EXCLUDES(m_logPoolMutex);

    // Blocks until every line queued before the call has been written (or dropped), whatever
    // other threads queue meanwhile. True when done; false when there are no workers to wait
    // for. For tests, and for a wrapper about to exit (queued lines are otherwise discarded).
    // Must not be called from a worker (that is, from a task of this log).
    bool WaitForQueuedLines() ZOL_EXCLUDES(m_drainMutex);

    // Lines dropped because their 2,048-byte block could not be allocated, because the log
    // file would not open, and because the file would not take the whole line (a full disk or
    // a file size limit). Counted since construction; relaxed reads.
    uint64_t DroppedLinesNoMemory() const;
    uint64_t DroppedLinesNoFile() const;
    uint64_t DroppedLinesNoSpace() const;

    ZOLOfflineLog();
    ~ZOLOfflineLog();
    ZOLOfflineLog(const ZOLOfflineLog&) = delete;
    ZOLOfflineLog& operator=(const ZOLOfflineLog&) = delete;

private:
    // The body of the ten entry points.
    static void Enter(ZOLOfflineLogLevel level, bool capture, const char* fmt, va_list args);
    struct Drain;
    static void DrainTask(void* data, unsigned int size);
    // Appends path to m_logFileList and, past kMaxLogFiles, deletes the oldest file and forgets
    // it. The caller holds m_fileListMutex (or, in FlushLogPoolToFile, has the list to itself).
    void ListNewFile(const std::string& path) ZOL_REQUIRES(m_fileListMutex);
    // Starts the workers again in a forked child, on its first line.
    void RestartWorkers() ZOL_EXCLUDES(m_restartMutex);
    static void ForkPrepare();
    static void ForkParent();
    static void ForkChild();

    bool m_enable = false;
    ZOLMutex m_fileListMutex;
    // kLogPoolSize bytes when enabled; text then a zero. Set by the constructor only.
    char* m_logPool ZOL_PT_GUARDED_BY(m_logPoolMutex) = nullptr;
    uint32_t m_logPoolSize ZOL_GUARDED_BY(m_logPoolMutex) = 0;  // bytes of text in m_logPool
    ZOLThreadPool m_threadPool;
    // Files created by this object, oldest first.
    std::list<std::string> m_logFileList ZOL_GUARDED_BY(m_fileListMutex);
    ZOLMutex m_logFileMutex;
    uint32_t m_curLogFileSize ZOL_GUARDED_BY(m_logFileMutex) = kMaxLogFileSize;
    std::string m_curLogFileName ZOL_GUARDED_BY(m_logFileMutex);
    bool m_captureEnable = false;

    // Beyond the basic record: AppendToLogPool's lock, the drop counters, and the state of
    // WaitForQueuedLines (m_drainMutex guards m_stopping and every pending drain's counts).
    ZOLMutex m_logPoolMutex;
    std::atomic<uint64_t> m_droppedNoMemory{0};
    std::atomic<uint64_t> m_droppedNoFile{0};
    std::atomic<uint64_t> m_droppedNoSpace{0};
    ZOLMutex m_drainMutex;
    ZOLConditionVariable m_drainCond;  // waited on with m_drainMutex
    bool m_stopping ZOL_GUARDED_BY(m_drainMutex) = false;
    // Set in a forked child, whose workers are gone; m_restartMutex serialises the restart.
    std::atomic<bool> m_workersGone{false};
    ZOLMutex m_restartMutex;
};
