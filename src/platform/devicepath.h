// Device paths: where a path the library names under /data or /vendor really lies.
//
// On a device this is the identity. On the host, when the environment variable ZOL_DEVICE_ROOT
// is set, an absolute path under /data or /vendor is resolved below that directory, so that
// ZOL_DEVICE_ROOT=/tmp/r turns "/data/vendor/camera/offlinelog/" into
// "/tmp/r/data/vendor/camera/offlinelog/". Every other path (/proc, relative paths) stands as it
// is. The variable is read on every call; tests set it before the library touches a path.
#pragma once

#include <string>

namespace zol {

std::string DevicePath(const char* path);

}  // namespace zol
