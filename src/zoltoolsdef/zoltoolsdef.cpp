#include "zoltoolsdef.h"

#include "platform/properties.h"

// Read once, when the library is loaded (this unit's initialiser runs first of the library's).
int32_t ZOLToolsLogLevel = property_get_int32("persist.vendor.camera.zoltools.loglevel", 5);
