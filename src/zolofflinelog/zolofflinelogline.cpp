#include "zolofflinelog/internal/zolofflinelogline.h"

#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "platform/devicepath.h"

namespace zol {
namespace offlinelog {

namespace {

// Both ids cost a system call each on glibc, twice as much as the rest of a line's stamp; they
// are kept once read. Only the thread that forks lives on in the child, and the fork handler
// makes it read both again there.
std::atomic<pid_t> g_pid{0};
thread_local pid_t t_tid = 0;
std::once_flag g_forkHandler;

void ForgetIdsInChild() {
    g_pid.store(0, std::memory_order_relaxed);
    t_tid = 0;
}

void WatchForks() {
    std::call_once(g_forkHandler, [] { pthread_atfork(nullptr, nullptr, ForgetIdsInChild); });
}

}  // namespace

pid_t ProcessId() {
    pid_t pid = g_pid.load(std::memory_order_relaxed);
    if (pid == 0) {
        WatchForks();
        pid = getpid();
        g_pid.store(pid, std::memory_order_relaxed);
    }
    return pid;
}

pid_t ThreadId() {
    if (t_tid == 0) {
        WatchForks();
        t_tid = gettid();
    }
    return t_tid;
}

void LocalTime(time_t seconds, struct tm* out) {
    // Trivial types only, so the per-thread cache needs no constructor or destructor.
    thread_local bool cached = false;
    thread_local time_t cachedSeconds;
    thread_local struct tm cachedTm;
    if (!cached || cachedSeconds != seconds) {
        if (localtime_r(&seconds, &cachedTm) == nullptr) {
            // Out of range for a broken-down time: print zeros rather than garbage.
            std::memset(&cachedTm, 0, sizeof(cachedTm));
        }
        cachedSeconds = seconds;
        cached = true;
    }
    *out = cachedTm;
}

size_t FormatStamp(char* out, const struct timespec& now, pid_t pid, pid_t tid, char letter) {
    struct tm local;
    LocalTime(now.tv_sec, &local);
    const int n =
        std::snprintf(out, kStampSize, kStampFormat, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                      local.tm_min, local.tm_sec, static_cast<long>(now.tv_nsec), pid, tid, letter);
    if (n < 0) {
        out[0] = '\0';
        return 0;
    }
    return static_cast<size_t>(n) < kStampSize ? static_cast<size_t>(n) : kStampSize - 1;
}

void ComposeLine(char* block, const char* stamp, size_t stampLen, const char* msg) {
    constexpr size_t kRoom = kLongestLine;
    size_t len = stampLen < kRoom ? stampLen : kRoom;
    std::memcpy(block, stamp, len);
    const size_t msgLen = strnlen(msg, kRoom - len);
    std::memcpy(block + len, msg, msgLen);
    len += msgLen;
    if (len < kRoom) {
        block[len] = '\n';
    }
}

std::string NewLogFilePath() {
    struct timeval now;
    gettimeofday(&now, nullptr);
    struct tm local;
    LocalTime(now.tv_sec, &local);
    char name[64];
    std::snprintf(name, sizeof(name), kFileNameFormat, local.tm_year + 1900, local.tm_mon + 1,
                  local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<long>(now.tv_usec));
    return zol::DevicePath(("/data/vendor/camera/offlinelog/" + std::string(name)).c_str());
}

}  // namespace offlinelog
}  // namespace zol
