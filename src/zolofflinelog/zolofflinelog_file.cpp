// Writing lines to the log files: FlushLogPoolToFile2 (one queued line, on a worker) and
// FlushLogPoolToFile (the memory pool, on the caller's thread), with the list of files created.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "zolofflinelog.h"
#include "zolofflinelog/zolofflinelogline.h"

namespace {

// One open of a log file, closed when it goes out of scope. Every write appends (O_APPEND), so
// a line is one write at the end of the file wherever other workers have got to; a new file is
// created truncated but written the same way, so that a line another worker appends to it in
// between is never overwritten.
class LogFileFd {
public:
    enum class Open { kNew, kAppend };

    LogFileFd(const std::string& path, Open how) {
        const int flags =
            O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | (how == Open::kNew ? O_TRUNC : 0);
        do {
            m_fd = ::open(path.c_str(), flags, 0666);
        } while (m_fd < 0 && errno == EINTR);
    }
    ~LogFileFd() {
        if (m_fd >= 0) {
            const int savedErrno = errno;
            ::close(m_fd);
            errno = savedErrno;
        }
    }
    LogFileFd(const LogFileFd&) = delete;
    LogFileFd& operator=(const LogFileFd&) = delete;

    bool ok() const { return m_fd >= 0; }

    // Writes all of data unless the file refuses (a full disk): the log does not report that.
    void Write(const char* data, size_t len) {
        while (len > 0) {
            const ssize_t n = ::write(m_fd, data, len);
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n <= 0) {
                return;
            }
            data += n;
            len -= static_cast<size_t>(n);
        }
    }

private:
    int m_fd = -1;
};

}  // namespace

void ZOLOfflineLog::ListNewFile(const std::string& path) {
    m_logFileList.push_back(path);
    if (m_logFileList.size() > kMaxLogFiles) {
        std::remove(m_logFileList.front().c_str());  // a file already gone is fine
        m_logFileList.pop_front();
    }
}

// The file paths are strings: a worker that cannot allocate one drops the line, counted as a
// line whose file would not open, instead of ending the process with the exception.
bool ZOLOfflineLog::FlushLogPoolToFile2(ZOLOfflineLogParameter* param) try {
    const uint32_t len = static_cast<uint32_t>(strnlen(param->logLine, sizeof(param->logLine)));

    std::unique_lock<std::mutex> fileLock(m_logFileMutex);
    std::string path;
    const bool newFile = m_curLogFileSize + len >= kMaxLogFileSize;
    if (newFile) {
        // This line would bring the current file to the limit: it starts the next one. The file
        // is created under the lock, so that no other worker sees its name before it exists.
        path = zol::offlinelog::NewLogFilePath();
    } else {
        path = m_curLogFileName;  // empty before the first file: the open below fails
        fileLock.unlock();
    }
    LogFileFd file(path, newFile ? LogFileFd::Open::kNew : LogFileFd::Open::kAppend);
    if (!file.ok()) {
        // The size and name stay as they were, so the next line tries again: a directory that
        // appears later is picked up without anything else being done.
        if (fileLock.owns_lock()) {
            fileLock.unlock();
        }
        m_droppedNoFile.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    if (newFile) {
        m_curLogFileSize = 0;
        m_curLogFileName = path;
        {
            std::lock_guard<std::mutex> listLock(m_fileListMutex);
            ListNewFile(path);
        }
        fileLock.unlock();
    }

    file.Write(param->logLine, len);  // no lock held

    fileLock.lock();
    m_curLogFileSize += len;
    fileLock.unlock();
    return true;
} catch (const std::bad_alloc&) {
    m_droppedNoFile.fetch_add(1, std::memory_order_relaxed);
    return false;
}

// Runs on the caller's thread: out of memory for the path it reports false, like a file that
// would not open, rather than letting the exception reach the caller.
bool ZOLOfflineLog::FlushLogPoolToFile() try {
    const std::string path = zol::offlinelog::NewLogFilePath();
    LogFileFd file(path, LogFileFd::Open::kNew);
    if (!file.ok()) {
        return false;
    }
    // A disabled log has no memory pool: the file is still created, empty, and listed.
    if (m_logPool != nullptr) {
        file.Write(m_logPool, m_logPoolSize);
        std::memset(m_logPool, 0, 8);
        m_logPoolSize = 0;
    }
    ListNewFile(path);
    return true;
} catch (const std::bad_alloc&) {
    return false;
}
