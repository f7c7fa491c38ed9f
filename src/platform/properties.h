// System properties, read with the device property library's own function. On a device it
// comes from libcutils; on the host properties_host.cpp supplies it (environment variables).
// Declared here rather than through <cutils/properties.h>, whose host copy needs headers that
// only a device tree has.
#pragma once

#include <cstdint>

extern "C" int32_t property_get_int32(const char* key, int32_t default_value);
