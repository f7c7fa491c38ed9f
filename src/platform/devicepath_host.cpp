#include "platform/devicepath.h"

#include <cstdlib>
#include <cstring>

namespace zol {

namespace {

// True when `path` is `dir` itself or lies below it ("/data", "/data/x"; not "/database").
bool IsUnder(const char* path, const char* dir) {
    const size_t n = std::strlen(dir);
    return std::strncmp(path, dir, n) == 0 && (path[n] == '\0' || path[n] == '/');
}

}  // namespace

std::string DevicePath(const char* path) {
    if (path == nullptr) {
        return std::string();
    }
    const char* root = std::getenv("ZOL_DEVICE_ROOT");
    if (root == nullptr || root[0] == '\0' ||
        !(IsUnder(path, "/data") || IsUnder(path, "/vendor"))) {
        return std::string(path);
    }
    std::string resolved(root);
    while (!resolved.empty() && resolved.back() == '/') {
        resolved.pop_back();
    }
    resolved += path;
    return resolved;
}

}  // namespace zol
