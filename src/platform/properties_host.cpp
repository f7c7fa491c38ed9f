// Host system properties: a property is the process environment variable of exactly the same
// name (env persist.vendor.camera.zoltools.loglevel=3 ./app). Parsed as the device's property
// library parses it: the whole value must be a base-0 integer within the int32 range, otherwise
// the default is returned.
#include "platform/properties.h"

#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdlib>

extern "C" int32_t property_get_int32(const char* key, int32_t default_value) {
    if (key == nullptr) {
        return default_value;
    }
    const char* value = std::getenv(key);
    if (value == nullptr || value[0] == '\0') {
        return default_value;
    }
    const int savedErrno = errno;  // a property read never disturbs the caller's errno
    errno = 0;
    char* end = nullptr;
    const intmax_t parsed = std::strtoimax(value, &end, 0);
    const bool valid = end != value && *end == '\0' && errno != ERANGE && parsed >= INT32_MIN &&
                       parsed <= INT32_MAX;
    errno = savedErrno;
    return valid ? static_cast<int32_t>(parsed) : default_value;
}
