#include "platform/dmabufname.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>

#include "zolmutex.h"

namespace zol {

namespace {

struct NameRecord {
    dev_t dev;
    ino_t ino;
    char name[kDmaBufNameSize];
};

// Descriptor number -> the last name set on it and the file it was set on. One entry per
// number ever named, overwritten when the number is named again: bounded by the descriptors
// in use at once, never by the buffers made over time.
struct NameRecords {
    ZOLMutex lock;
    std::map<int, NameRecord> byFd ZOL_GUARDED_BY(lock);
};

NameRecords& Records() {
    static NameRecords* records = new NameRecords;  // outlives threads still naming at exit
    return *records;
}

// The name a memfd was created with, from its /proc link "/memfd:<name> (deleted)".
std::string CreationName(int fd) {
    char link[128];
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t n = readlink(path.c_str(), link, sizeof(link) - 1);
    if (n <= 0) {
        return std::string();
    }
    std::string target(link, static_cast<size_t>(n));
    const std::string prefix = "/memfd:";
    const std::string suffix = " (deleted)";
    if (target.compare(0, prefix.size(), prefix) != 0) {
        return std::string();
    }
    target.erase(0, prefix.size());
    if (target.size() >= suffix.size() &&
        target.compare(target.size() - suffix.size(), suffix.size(), suffix) == 0) {
        target.erase(target.size() - suffix.size());
    }
    return target;
}

}  // namespace

int SetDmaBufName(int fd, const char* name) {
    struct stat st;
    if (fstat(fd, &st) < 0) {
        return -errno;
    }
    NameRecord record = {st.st_dev, st.st_ino, {}};
    size_t i = 0;
    for (; i + 1 < kDmaBufNameSize && name[i] != '\0'; ++i) {
        record.name[i] = name[i];
    }
    record.name[i] = '\0';
    NameRecords& records = Records();
    ZOLMutexLocker lock(records.lock);
    records.byFd[fd] = record;
    return 0;
}

std::string GetDmaBufName(int fd) {
    struct stat st;
    if (fstat(fd, &st) < 0) {
        return std::string();
    }
    {
        NameRecords& records = Records();
        ZOLMutexLocker lock(records.lock);
        auto found = records.byFd.find(fd);
        if (found != records.byFd.end() && found->second.dev == st.st_dev &&
            found->second.ino == st.st_ino) {
            return found->second.name;
        }
    }
    return CreationName(fd);
}

}  // namespace zol
