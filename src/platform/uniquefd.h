// Internal: the owners of the library's and the tools' own descriptors, streams and directory
// handles. Whatever opens one of these on its own account hands it to an owner at once:
//
//     zol::UniqueFd fd = zol::Open(path, O_RDONLY);  // closed when fd goes out of scope
//     zol::UniqueFile file(std::fopen(path, "rb"));  // fclose'd likewise
//     zol::UniqueDir dir(opendir(path));              // closedir'd likewise
//
// A descriptor that the public API hands to the caller (a DMA buffer's fd) leaves its owner
// through release() and belongs to the caller from then on. Every owner keeps errno across the
// close it does at the end of its scope, so an error reported after it still names the cause.
// Header only: the tools use these types without the library exporting anything for them.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

namespace zol {

// Owns one file descriptor (or none: -1). Move-only. A close is never retried on EINTR: Linux
// has released the number by then, and another thread may already have it again.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) noexcept : m_fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : m_fd(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    int get() const noexcept { return m_fd; }
    bool ok() const noexcept { return m_fd >= 0; }

    // Gives the descriptor up without closing it: the caller owns it now.
    [[nodiscard]] int release() noexcept {
        const int fd = m_fd;
        m_fd = -1;
        return fd;
    }

    // Closes the descriptor held (if any), errno unchanged, and takes `fd` instead.
    void reset(int fd = -1) noexcept {
        if (m_fd >= 0 && m_fd != fd) {
            const int savedErrno = errno;
            ::close(m_fd);
            errno = savedErrno;
        }
        m_fd = fd;
    }

    // Closes now for a caller that reports the result: close(2)'s 0 or -1, errno as close left
    // it; -1 with errno EBADF when nothing was held.
    int close() noexcept {
        if (m_fd < 0) {
            errno = EBADF;
            return -1;
        }
        return ::close(release());
    }

private:
    int m_fd = -1;
};

// Closers that keep errno, for the two owners below.
struct FileCloser {
    void operator()(FILE* file) const noexcept {
        const int savedErrno = errno;
        std::fclose(file);
        errno = savedErrno;
    }
};
struct DirCloser {
    void operator()(DIR* dir) const noexcept {
        const int savedErrno = errno;
        closedir(dir);
        errno = savedErrno;
    }
};

// Owns one stdio stream; null when the open failed.
using UniqueFile = std::unique_ptr<FILE, FileCloser>;

// Owns one directory stream; null when the open failed.
using UniqueDir = std::unique_ptr<DIR, DirCloser>;

// Closes a written stream now and says whether its last buffered bytes reached the file:
// fclose's 0 or EOF, errno as fclose left it. `file` is empty afterwards.
inline int CloseFile(UniqueFile& file) noexcept {
    FILE* const stream = file.release();
    return stream != nullptr ? std::fclose(stream) : EOF;
}

}  // namespace zol
