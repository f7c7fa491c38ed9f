#include "platform/devicepath.h"

namespace zol {

// On a device the library's paths are the real ones.
std::string DevicePath(const char* path) {
    return path == nullptr ? std::string() : std::string(path);
}

}  // namespace zol
