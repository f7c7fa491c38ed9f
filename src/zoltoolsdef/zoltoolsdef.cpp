#include "zoltoolsdef.h"

#include "platform/properties.h"
#include "zolofflinelog.h"

// Read once, when the library is loaded (this unit's initialiser runs first of the library's).
int32_t ZOLToolsLogLevel = property_get_int32("persist.vendor.camera.zoltools.loglevel", 5);

namespace zol {
namespace debuglog {

// The library's own copies of the debug log reach the offline log through here.
void Offline(int priority, const char* text) {
    OfflineVia<ZOLOfflineLog>(priority, text);
}

}  // namespace debuglog
}  // namespace zol
