// Internal: the owner of a file descriptor, and the open of a file the library reads or appends
// to on its own account (log files, frames read back).
#pragma once

#include <sys/types.h>

namespace zol {

// Owns one descriptor and closes it when the scope ends, keeping errno across the close.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : m_fd(other.m_fd) { other.m_fd = -1; }
    UniqueFd& operator=(UniqueFd&&) = delete;
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd();

    int get() const { return m_fd; }
    bool ok() const { return m_fd >= 0; }

private:
    int m_fd = -1;
};

// open(2) with O_CLOEXEC added, retried on EINTR.
UniqueFd Open(const char* path, int flags, mode_t mode = 0666);

// The same with O_NONBLOCK added, keeping the descriptor only when it is a regular file. A FIFO
// put where a file belongs would otherwise block the open for as long as nobody opens its other
// end; a FIFO, device or directory counts as a file that would not open (errno EINVAL).
UniqueFd OpenRegularFile(const char* path, int flags, mode_t mode = 0666);

}  // namespace zol
