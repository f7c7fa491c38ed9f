// Reading back what the offline log wrote, for the offline-log and debug-log tests.
#pragma once

#include <string>
#include <vector>

#include "zolofflinelog.h"
#include "zoltest.h"

namespace offlinelogtest {

constexpr const char* kLogDir = "/data/vendor/camera/offlinelog";

// A device root with the log directory (unless makeLogDir is false). Build it before the first
// log call: the log reads the settings file below the root when it is constructed.
struct LogRoot {
    explicit LogRoot(bool makeLogDir = true) {
        if (makeLogDir) {
            root.MakeDir(kLogDir);
        }
    }
    ~LogRoot() {
        // Nothing may be writing below the root when it goes.
        ZOLOfflineLog::GetInstance()->WaitForQueuedLines();
    }
    std::string Dir() const { return root.Resolve(kLogDir); }
    std::vector<std::string> Files() const { return zoltest::ListDir(Dir()); }
    std::string Read(const std::string& name) const {
        return zoltest::ReadFile(Dir() + "/" + name);
    }

    // Every file's contents, oldest first (file names sort by creation time).
    std::string ReadAll() const {
        std::string all;
        for (const std::string& name : Files()) {
            all += Read(name);
        }
        return all;
    }

    zoltest::DeviceRoot root;
};

// Splits text at "\n"; a last piece without a newline is kept.
inline std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = text.find('\n', start);
        if (end == std::string::npos) {
            lines.push_back(text.substr(start));
            break;
        }
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

// The message part of a line: what follows " ZOL: ".
inline std::string MessageOf(const std::string& line) {
    const size_t at = line.find(" ZOL: ");
    return at == std::string::npos ? std::string() : line.substr(at + 6);
}

}  // namespace offlinelogtest
