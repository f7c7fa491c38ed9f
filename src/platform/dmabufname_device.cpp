#include "platform/dmabufname.h"

#include <linux/dma-buf.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <fstream>

namespace zol {

int SetDmaBufName(int fd, const char* name) {
    return ioctl(fd, DMA_BUF_SET_NAME, name) < 0 ? -errno : 0;
}

std::string GetDmaBufName(int fd) {
    std::ifstream info("/proc/self/fdinfo/" + std::to_string(fd));
    const std::string key = "name:";
    std::string line;
    while (std::getline(info, line)) {
        if (line.compare(0, key.size(), key) == 0) {
            const size_t start = line.find_first_not_of(" \t", key.size());
            return start == std::string::npos ? std::string() : line.substr(start);
        }
    }
    return std::string();
}

}  // namespace zol
