// Whether the offline log is on: ReadEnableFromOverrideSettingsFile.
// GCC 12 with -fsanitize=address warns, wrongly, that std::regex's internals may be used
// uninitialised: a known false positive.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

#include <fstream>
#include <regex>
#include <string>

#include "platform/devicepath.h"
#include "zolofflinelog.h"

bool ZOLOfflineLog::ReadEnableFromOverrideSettingsFile() {
    // The whole line must be a ZOLOfflineLog key with "=" after it; "." stops at a carriage
    // return, so a line ending in "\r" never qualifies. Then the value is looked for anywhere in
    // the line, in any case: the last qualifying line that says true or false decides.
    const std::regex key("ZOLOfflineLog.*=.*", std::regex::ECMAScript);
    const std::regex on("true", std::regex::ECMAScript | std::regex::icase);
    const std::regex off("false", std::regex::ECMAScript | std::regex::icase);

    std::ifstream file(zol::DevicePath("/vendor/etc/camera/camxoverridesettings.txt"));
    if (!file.is_open()) {
        return false;
    }
    bool enable = false;
    for (std::string line; std::getline(file, line);) {
        if (!std::regex_match(line, key)) {
            continue;
        }
        if (std::regex_search(line, on)) {
            enable = true;
        } else if (std::regex_search(line, off)) {
            enable = false;
        }
    }
    return enable;
}
