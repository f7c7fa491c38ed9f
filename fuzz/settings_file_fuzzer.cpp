// The offline log's switch in the vendor settings file: arbitrary file contents.
//
// Besides the sanitizers, every decision is checked against the rule written out by hand: a
// line qualifies when it starts with "ZOLOfflineLog", has an "=" after that and no carriage
// return (the only line terminator left once lines are split at "\n"); of the qualifying lines
// that contain "true" or "false" in any ASCII case, the last decides; no such line means off.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_support.h"
#include "zolofflinelog.h"

namespace {

bool ContainsNoCase(const std::string& line, const char* word) {
    const size_t n = std::strlen(word);
    for (size_t at = 0; at + n <= line.size(); ++at) {
        size_t i = 0;
        while (i < n) {
            char c = line[at + i];
            if (c >= 'A' && c <= 'Z') {
                c = static_cast<char>(c + 32);
            }
            if (c != word[i]) {
                break;
            }
            ++i;
        }
        if (i == n) {
            return true;
        }
    }
    return false;
}

bool Qualifies(const std::string& line) {
    static const std::string kKey = "ZOLOfflineLog";
    return line.compare(0, kKey.size(), kKey) == 0 &&
           line.find('=', kKey.size()) != std::string::npos && line.find('\r') == std::string::npos;
}

bool ExpectedDecision(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    bool enable = false;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) {
            end = text.size();
        }
        const std::string line = text.substr(start, end - start);
        if (Qualifies(line)) {
            if (ContainsNoCase(line, "true")) {
                enable = true;
            } else if (ContainsNoCase(line, "false")) {
                enable = false;
            }
        }
        start = end + 1;
    }
    return enable;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zolfuzz::Setup();
    zolfuzz::MakeDirs(zolfuzz::DevicePath("/vendor/etc/camera"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string path =
        zolfuzz::DevicePath("/vendor/etc/camera/camxoverridesettings.txt");
    zolfuzz::WriteFile(path, data, size);
    const bool got = ZOLOfflineLog::ReadEnableFromOverrideSettingsFile();
    if (got != ExpectedDecision(data, size)) {
        std::fprintf(stderr, "settings file decided %s, the rule says %s\n", got ? "on" : "off",
                     got ? "off" : "on");
        std::abort();
    }
    return 0;
}
