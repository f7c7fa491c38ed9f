// Whether the offline log is on: ReadEnableFromOverrideSettingsFile.
#include <fstream>
#include <string>

#include "platform/devicepath.h"
#include "zolofflinelog.h"

namespace {

// The line patterns are matched by hand, with exactly the meaning of the ECMAScript patterns
// "ZOLOfflineLog.*=.*" (whole line), "true" and "false" (searched for, ignoring case).
// std::regex matches by recursion, one level per character, so a long line in the settings
// file overflowed the stack of whichever thread logged first.

// A whole-line match of "ZOLOfflineLog.*=.*": the key first, an "=" somewhere after it, and
// no line terminator anywhere, since "." does not match one ("\n" never occurs in a line read
// with getline; "\r" does, so a file with carriage-return line ends never qualifies).
bool IsKeyLine(const std::string& line) {
    static const std::string kKey = "ZOLOfflineLog";
    return line.compare(0, kKey.size(), kKey) == 0 &&
           line.find('=', kKey.size()) != std::string::npos && line.find('\r') == std::string::npos;
}

char AsciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Whether `word` (lower case) occurs anywhere in `line`, ignoring ASCII case.
bool ContainsIgnoringCase(const std::string& line, const std::string& word) {
    for (size_t at = 0; at + word.size() <= line.size(); ++at) {
        size_t i = 0;
        while (i < word.size() && AsciiLower(line[at + i]) == word[i]) {
            ++i;
        }
        if (i == word.size()) {
            return true;
        }
    }
    return false;
}

}  // namespace

bool ZOLOfflineLog::ReadEnableFromOverrideSettingsFile() {
    std::ifstream file(zol::DevicePath("/vendor/etc/camera/camxoverridesettings.txt"));
    if (!file.is_open()) {
        return false;
    }
    // The value is looked for anywhere in a qualifying line, in any case: the last qualifying
    // line that says true or false decides.
    bool enable = false;
    for (std::string line; std::getline(file, line);) {
        if (!IsKeyLine(line)) {
            continue;
        }
        if (ContainsIgnoringCase(line, "true")) {
            enable = true;
        } else if (ContainsIgnoringCase(line, "false")) {
            enable = false;
        }
    }
    return enable;
}
