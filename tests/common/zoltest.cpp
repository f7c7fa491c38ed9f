#include "zoltest.h"

#include <android/log.h>
#include <dirent.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>

namespace zoltest {

namespace {

std::mutex g_mutex;
std::vector<LogLine>* g_lines = nullptr;  // guarded by g_mutex; set while a capture lives

void CaptureLogger(const struct __android_logger_data* data, const char* message) {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_lines != nullptr) {
        g_lines->push_back({data->priority, data->tag != nullptr ? data->tag : "",
                            message != nullptr ? message : ""});
    }
}

}  // namespace

LogCapture::LogCapture() {
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_lines = new std::vector<LogLine>();
    }
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(CaptureLogger);
}

LogCapture::~LogCapture() {
    __android_log_set_logger(__android_log_stderr_logger);
    std::lock_guard<std::mutex> lock(g_mutex);
    delete g_lines;
    g_lines = nullptr;
}

std::vector<LogLine> LogCapture::Lines() const {
    std::lock_guard<std::mutex> lock(g_mutex);
    return *g_lines;
}

std::vector<std::string> LogCapture::Texts(int priority) const {
    std::vector<std::string> out;
    std::lock_guard<std::mutex> lock(g_mutex);
    for (const LogLine& line : *g_lines) {
        if (priority < 0 || line.priority == priority) {
            out.push_back(line.text);
        }
    }
    return out;
}

size_t LogCapture::Count(const std::string& needle) const {
    std::lock_guard<std::mutex> lock(g_mutex);
    return static_cast<size_t>(std::count_if(
        g_lines->begin(), g_lines->end(),
        [&](const LogLine& line) { return line.text.find(needle) != std::string::npos; }));
}

bool LogCapture::HasSourceLine(const std::string& file, const std::string& rest) const {
    const std::string head = file + ":";
    std::lock_guard<std::mutex> lock(g_mutex);
    for (const LogLine& line : *g_lines) {
        const std::string& text = line.text;
        if (text.size() <= head.size() + rest.size() || text.rfind(head, 0) != 0 ||
            text.compare(text.size() - rest.size(), rest.size(), rest) != 0) {
            continue;
        }
        const std::string number =
            text.substr(head.size(), text.size() - head.size() - rest.size());
        if (number.find_first_not_of("0123456789") == std::string::npos) {
            return true;
        }
    }
    return false;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_lines->clear();
}

DeviceRoot::DeviceRoot() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/zoltest-root-XXXXXX";
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    if (mkdtemp(buf.data()) == nullptr) {
        std::abort();
    }
    root_ = buf.data();
    if (const char* prev = std::getenv("ZOL_DEVICE_ROOT")) {
        had_previous_ = true;
        previous_ = prev;
    }
    setenv("ZOL_DEVICE_ROOT", root_.c_str(), 1);
}

DeviceRoot::~DeviceRoot() {
    if (had_previous_) {
        setenv("ZOL_DEVICE_ROOT", previous_.c_str(), 1);
    } else {
        unsetenv("ZOL_DEVICE_ROOT");
    }
    RemoveTree(root_);
}

std::string DeviceRoot::MakeDir(const std::string& devicePath) const {
    const std::string full = Resolve(devicePath);
    for (size_t pos = root_.size() + 1; pos != std::string::npos;) {
        pos = full.find('/', pos + 1);
        mkdir(full.substr(0, pos).c_str(), 0755);
    }
    return full;
}

std::string DeviceRoot::WriteFile(const std::string& devicePath,
                                  const std::string& contents) const {
    const size_t slash = devicePath.rfind('/');
    if (slash != std::string::npos && slash > 0) {
        MakeDir(devicePath.substr(0, slash));
    }
    const std::string full = Resolve(devicePath);
    std::ofstream out(full, std::ios::binary | std::ios::trunc);
    out << contents;
    return full;
}

std::string Address(const void* p) {
    char text[32];
    std::snprintf(text, sizeof(text), "%p", p);
    return text;
}

void RemoveTree(const std::string& path) {
    nftw(
        path.c_str(),
        [](const char* p, const struct stat*, int, struct FTW*) { return ::remove(p); }, 16,
        FTW_DEPTH | FTW_PHYS);
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

std::vector<std::string> ListDir(const std::string& path) {
    std::vector<std::string> names;
    if (DIR* dir = opendir(path.c_str())) {
        while (struct dirent* entry = readdir(dir)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") {
                names.push_back(name);
            }
        }
        closedir(dir);
    }
    std::sort(names.begin(), names.end());
    return names;
}

int CountOpenFds() {
    // The directory stream holds one descriptor of its own while it is read.
    return static_cast<int>(ListDir("/proc/self/fd").size()) - 1;
}

int CountMappings() {
    std::ifstream in("/proc/self/maps");
    int lines = 0;
    for (std::string line; std::getline(in, line);) {
        ++lines;
    }
    return lines;
}

int CountSharedMappings() {
    std::ifstream in("/proc/self/maps");
    int shared = 0;
    for (std::string line; std::getline(in, line);) {
        // "start-end perms offset ...": the fourth permission letter is 's' for shared.
        const size_t perms = line.find(' ');
        if (perms != std::string::npos && perms + 4 < line.size() && line[perms + 4] == 's') {
            ++shared;
        }
    }
    return shared;
}

}  // namespace zoltest
