// Writing lines to the log files: FlushLogPoolToFile2 (one queued line, on a worker) and
// FlushLogPoolToFile (the memory pool, on the caller's thread), with the list of files created.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "platform/openfile.h"
#include "zolofflinelog.h"
#include "zolofflinelog/internal/zolofflinelogline.h"

namespace {

// Opens a log file: a new one truncated, the current one for appending. Every write appends
// (O_APPEND), so a line is one write at the end of the file wherever other workers have got to;
// a new file is written the same way, so that a line another worker appends to it in between
// is never overwritten. Only a regular file is used: anything else put in its place (a FIFO
// would block the open) counts as a file that would not open.
enum class Open { kNew, kAppend };
zol::UniqueFd OpenLogFile(const std::string& path, Open how) {
    return zol::OpenRegularFile(path.c_str(),
                                O_WRONLY | O_CREAT | O_APPEND | (how == Open::kNew ? O_TRUNC : 0));
}

// Writes text at the end of the file in one write. A file that takes only part of it (a full
// disk, a file size limit) is cut back to where the text began, so that no part of a line stays
// for the next one to be glued to. True when the whole text reached the file.
bool Append(int fd, const char* text, size_t len) {
    ssize_t n;
    do {
        n = ::write(fd, text, len);
    } while (n < 0 && errno == EINTR);
    if (n == static_cast<ssize_t>(len)) {
        return true;
    }
    if (n > 0) {
        // O_APPEND placed the text at the end; the offset now stands right behind the part
        // written, whatever other workers appended before or after it.
        const off_t end = lseek(fd, 0, SEEK_CUR);
        if (end >= n) {
            const int cut = ftruncate(fd, end - n);
            static_cast<void>(cut);  // a file that cannot be cut back keeps the part
        }
    }
    return false;
}

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

    // The file this line goes to: the current one, or the next one when the line would bring
    // the current one to the limit. The next file is created under the lock, so that no other
    // worker sees its name before it exists.
    const auto openFile = [this, len]() -> zol::UniqueFd {
        ZOLMutexLocker fileLock(m_logFileMutex);
        if (m_curLogFileSize + len < kMaxLogFileSize) {
            const std::string path = m_curLogFileName;  // empty before the first file: no open
            fileLock.unlock();
            return OpenLogFile(path, Open::kAppend);
        }
        const std::string path = zol::offlinelog::NewLogFilePath();
        zol::UniqueFd file = OpenLogFile(path, Open::kNew);
        if (file.ok()) {
            m_curLogFileSize = 0;
            m_curLogFileName = path;
            ZOLMutexLocker listLock(m_fileListMutex);
            ListNewFile(path);
        }
        return file;
    };
    const zol::UniqueFd file = openFile();
    if (!file.ok()) {
        // The size and name stay as they were, so the next line tries again: a directory that
        // appears later is picked up without anything else being done.
        m_droppedNoFile.fetch_add(1, std::memory_order_relaxed);
        return false;
    }

    if (!Append(file.get(), param->logLine, len)) {  // no lock held
        m_droppedNoSpace.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    ZOLMutexLocker fileLock(m_logFileMutex);
    m_curLogFileSize += len;
    return true;
} catch (const std::bad_alloc&) {
    m_droppedNoFile.fetch_add(1, std::memory_order_relaxed);
    return false;
}

// Runs on the caller's thread: out of memory for the path it reports false, like a file that
// would not open, rather than letting the exception reach the caller. Takes no lock: its caller
// keeps the workers and AppendToLogPool away, which the analysis cannot see.
bool ZOLOfflineLog::FlushLogPoolToFile() ZOL_NO_THREAD_SAFETY_ANALYSIS try {
    const std::string path = zol::offlinelog::NewLogFilePath();
    const zol::UniqueFd file = OpenLogFile(path, Open::kNew);
    if (!file.ok()) {
        return false;
    }
    // A disabled log has no memory pool: the file is still created, empty, and listed. Text
    // the file does not take whole is cut back and lost, as lines are.
    if (m_logPool != nullptr) {
        Append(file.get(), m_logPool, m_logPoolSize);
        std::memset(m_logPool, 0, 8);
        m_logPoolSize = 0;
    }
    ListNewFile(path);
    return true;
} catch (const std::bad_alloc&) {
    return false;
}
