#include "fault_support.h"

#include <dirent.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "zoltest.h"

namespace faults {

ScopedLimit::ScopedLimit(int resource, rlim_t soft) : m_resource(resource) {
    getrlimit(resource, &m_saved);
    rlimit limit = m_saved;
    limit.rlim_cur = soft;
    setrlimit(resource, &limit);
}

ScopedLimit::~ScopedLimit() {
    setrlimit(m_resource, &m_saved);
}

NoMoreDescriptors::NoMoreDescriptors() {
    getrlimit(RLIMIT_NOFILE, &m_saved);
    int highest = 2;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (const dirent* entry = readdir(dir)) {
            if (entry->d_name[0] != '.') {
                highest = std::max(highest, std::atoi(entry->d_name));
            }
        }
        closedir(dir);
    }
    rlimit limit = m_saved;
    limit.rlim_cur = static_cast<rlim_t>(highest) + 1;
    setrlimit(RLIMIT_NOFILE, &limit);
    for (int fd; (fd = dup(0)) >= 0;) {
        m_fill.push_back(fd);
    }
}

NoMoreDescriptors::~NoMoreDescriptors() {
    for (int fd : m_fill) {
        close(fd);
    }
    setrlimit(RLIMIT_NOFILE, &m_saved);
}

std::string MountPrivateTmpfs(const std::string& dir, size_t bytes) {
    if (unshare(CLONE_NEWNS) != 0) {
        // Without privilege a user namespace may still allow it (single-threaded processes).
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
            return std::string("no private mount namespace: ") + std::strerror(errno);
        }
    }
    // Mounts made here must not propagate back to the machine's namespace.
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return std::string("cannot make mounts private: ") + std::strerror(errno);
    }
    const std::string options = "size=" + std::to_string(bytes);
    if (mount("zolfaults", dir.c_str(), "tmpfs", 0, options.c_str()) != 0) {
        return std::string("cannot mount a tmpfs: ") + std::strerror(errno);
    }
    return std::string();
}

bool ResizeTmpfs(const std::string& dir, size_t bytes) {
    const std::string options = "size=" + std::to_string(bytes);
    return mount(nullptr, dir.c_str(), nullptr, MS_REMOUNT, options.c_str()) == 0;
}

std::vector<std::string> ReadLines(const std::string& dir) {
    std::vector<std::string> lines;
    for (const std::string& name : zoltest::ListDir(dir)) {
        const std::string text = zoltest::ReadFile(dir + "/" + name);
        size_t start = 0;
        while (start < text.size()) {
            size_t end = text.find('\n', start);
            if (end == std::string::npos) {
                end = text.size();
            }
            lines.push_back(text.substr(start, end - start));
            start = end + 1;
        }
    }
    return lines;
}

size_t DirBytes(const std::string& dir) {
    size_t total = 0;
    for (const std::string& name : zoltest::ListDir(dir)) {
        struct stat st;
        if (stat((dir + "/" + name).c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
            total += static_cast<size_t>(st.st_size);
        }
    }
    return total;
}

bool IsWholeLogLine(const std::string& line) {
    static const std::string kStamp = "dd-dd dd:dd:dd:ddddddddd  ";  // d: a digit
    if (line.size() < kStamp.size()) {
        return false;
    }
    for (size_t i = 0; i < kStamp.size(); ++i) {
        const bool digit = line[i] >= '0' && line[i] <= '9';
        if (kStamp[i] == 'd' ? !digit : line[i] != kStamp[i]) {
            return false;
        }
    }
    const size_t zol = line.find(" ZOL: ", kStamp.size());
    return zol != std::string::npos && zol >= 2 &&
           std::string("EWDIV").find(line[zol - 1]) != std::string::npos && line[zol - 2] == ' ';
}

}  // namespace faults
