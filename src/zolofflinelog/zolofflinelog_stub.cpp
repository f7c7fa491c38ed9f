// Placeholder until the offline log lands: every entry point accepts its line and drops it.
#include "zolofflinelog.h"

#define ZOL_STUB_ENTRY(name) \
    void ZOLOfflineLog::name(const char*, ...) {}
ZOL_STUB_ENTRY(ZOLOfflineLogE)
ZOL_STUB_ENTRY(ZOLOfflineLogW)
ZOL_STUB_ENTRY(ZOLOfflineLogD)
ZOL_STUB_ENTRY(ZOLOfflineLogI)
ZOL_STUB_ENTRY(ZOLOfflineLogV)
ZOL_STUB_ENTRY(ZOLOfflineLogECapture)
ZOL_STUB_ENTRY(ZOLOfflineLogWCapture)
ZOL_STUB_ENTRY(ZOLOfflineLogDCapture)
ZOL_STUB_ENTRY(ZOLOfflineLogICapture)
ZOL_STUB_ENTRY(ZOLOfflineLogVCapture)
