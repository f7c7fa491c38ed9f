#include "platform/openfile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace zol {

UniqueFd Open(const char* path, int flags, mode_t mode) {
    int fd;
    do {
        fd = ::open(path, flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return UniqueFd(fd);
}

UniqueFd OpenRegularFile(const char* path, int flags, mode_t mode) {
    UniqueFd fd = Open(path, flags | O_NONBLOCK, mode);
    struct stat st;
    if (fd.ok() && (fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode))) {
        errno = EINVAL;
        return UniqueFd();
    }
    return fd;
}

}  // namespace zol
