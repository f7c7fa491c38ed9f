#include "fault_support.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "zoltest.h"

namespace faults {

NoMoreDescriptors::NoMoreDescriptors() {
    getrlimit(RLIMIT_NOFILE, &m_saved);
    int highest = 2;
    for (const std::string& fd : zoltest::ListDir("/proc/self/fd")) {
        highest = std::max(highest, std::stoi(fd));  // the listing's own is filled below
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
    // Without privilege a user namespace may still allow it (single-threaded processes).
    if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        return std::string("no private mount namespace: ") + std::strerror(errno);
    }
    // Mounts made here must not propagate back to the machine's namespace.
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return std::string("cannot make mounts private: ") + std::strerror(errno);
    }
    if (mount("zolfaults", dir.c_str(), "tmpfs", 0, ("size=" + std::to_string(bytes)).c_str())) {
        return std::string("cannot mount a tmpfs: ") + std::strerror(errno);
    }
    return std::string();
}

bool ResizeTmpfs(const std::string& dir, size_t bytes) {
    const std::string options = "size=" + std::to_string(bytes);
    return mount(nullptr, dir.c_str(), nullptr, MS_REMOUNT, options.c_str()) == 0;
}

}  // namespace faults
