#include "fault_support.h"

#include <dirent.h>
#include <sched.h>
#include <sys/mount.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "zoltest.h"

namespace faults {

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

}  // namespace faults
