#include "zoltest.h"

#include <android/log.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <thread>

extern char** environ;

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

// Forks a child in a process group of its own that runs `body` and _exits with its result;
// waits for it, and past the deadline kills the group.
int ForkAndWait(const std::function<int()>& body, int timeoutSeconds, struct rusage* usage) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        setpgid(0, 0);
        const int status = body();
        std::fflush(nullptr);
        _exit(status);
    }
    if (pid < 0) {
        return -1;
    }
    setpgid(pid, pid);  // whichever side gets there first
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    int status = 0;
    for (pid_t done; (done = wait4(pid, &status, WNOHANG, usage)) != pid;) {
        if (done < 0 && errno != EINTR) {
            return -1;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            kill(-pid, SIGKILL);
            while (wait4(pid, &status, 0, usage) < 0 && errno == EINTR) {
            }
            return 124;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::vector<char*> Pointers(std::vector<std::string>& strings) {
    std::vector<char*> out;
    for (std::string& s : strings) {
        out.push_back(s.data());
    }
    out.push_back(nullptr);
    return out;
}

}  // namespace

LogCapture::LogCapture() {
    {
        // Not held across liblog's calls: liblog holds its own lock while calling the logger.
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
    for (const LogLine& line : Lines()) {
        if (priority < 0 || line.priority == priority) {
            out.push_back(line.text);
        }
    }
    return out;
}

size_t LogCapture::Count(const std::string& needle) const {
    size_t count = 0;
    for (const std::string& text : Texts()) {
        count += text.find(needle) != std::string::npos;
    }
    return count;
}

size_t LogCapture::Matching(int priority, const std::string& pattern) const {
    size_t count = 0;
    for (const std::string& text : Texts(priority)) {
        count += MatchesPattern(text, pattern);
    }
    return count;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_lines->clear();
}

bool MatchesPattern(const std::string& text, const std::string& pattern) {
    size_t t = 0;
    for (char c : pattern) {
        if (c != '#') {
            if (t >= text.size() || text[t++] != c) {
                return false;
            }
            continue;
        }
        const size_t start = t;
        while (t < text.size() && text[t] >= '0' && text[t] <= '9') {
            ++t;
        }
        if (t == start) {
            return false;
        }
    }
    return t == text.size();
}

TempDir::TempDir() {
    const char* tmp = std::getenv("TMPDIR");
    m_path = std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/zoltest-XXXXXX";
    if (mkdtemp(m_path.data()) == nullptr) {
        std::abort();
    }
}

TempDir::~TempDir() {
    RemoveTree(m_path);
}

std::string TempDir::MakeDir(const std::string& name) const {
    const std::string full = *this / name;
    std::error_code error;  // a case may make a path that cannot be made
    std::filesystem::create_directories(full, error);
    return full;
}

std::string TempDir::WriteFile(const std::string& name, const std::string& contents) const {
    const std::string full = *this / name;
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(full).parent_path(), error);
    std::ofstream(full, std::ios::binary | std::ios::trunc) << contents;
    return full;
}

DeviceRoot::DeviceRoot() {
    if (const char* previous = std::getenv("ZOL_DEVICE_ROOT")) {
        m_previous = previous;
    }
    setenv("ZOL_DEVICE_ROOT", path().c_str(), 1);
}

DeviceRoot::~DeviceRoot() {
    if (m_previous) {
        setenv("ZOL_DEVICE_ROOT", m_previous->c_str(), 1);
    } else {
        unsetenv("ZOL_DEVICE_ROOT");
    }
}

TestImage::TestImage(uint32_t format, uint32_t width, uint32_t height, uint32_t stride,
                     size_t planeBytes, uint8_t seed)
    : buffer{} {
    for (int p = 0; p < 2; ++p) {
        planes[p].resize(planeBytes);
        for (size_t i = 0; i < planeBytes; ++i) {
            planes[p][i] = static_cast<uint8_t>(seed + p * 101 + i * 7 + i / 251);
        }
        buffer.Addr[p] = planes[p].data();
    }
    buffer.format = format;
    buffer.width = width;
    buffer.height = height;
    buffer.planeStride = stride;
    buffer.sliceHeight = height;
    buffer.numberOfPlanes = 2;
}

void TestImage::Fill(uint8_t value) {
    for (auto& plane : planes) {
        plane.assign(plane.size(), value);
    }
}

std::string TestImage::Rows(int p, int rows, int rowBytes) const {
    std::string out;
    for (size_t r = 0; r < static_cast<size_t>(rows); ++r) {
        out.append(reinterpret_cast<const char*>(&planes[p][r * buffer.planeStride]),
                   static_cast<size_t>(rowBytes));
    }
    return out;
}

RunResult Run(const std::vector<std::string>& argv, const RunOptions& options) {
    TempDir dir;
    const std::string outPath = dir / "stdout";
    const std::string errPath = dir / "stderr";
    std::vector<std::string> args = argv;
    std::vector<std::string> environment = options.env;  // then ours, less what it sets anew
    for (char** e = environ; *e != nullptr; ++e) {
        const std::string name(*e, std::strcspn(*e, "=") + 1);
        if (std::none_of(options.env.begin(), options.env.end(),
                         [&](const auto& s) { return s.rfind(name, 0) == 0; })) {
            environment.push_back(*e);
        }
    }
    const std::vector<char*> argp = Pointers(args);
    const std::vector<char*> envp = Pointers(environment);
    RunResult result;
    struct rusage usage = {};
    // Only async-signal-safe calls in the child: this process may have other threads.
    result.status = ForkAndWait(
        [&]() -> int {
            const int flags = O_WRONLY | O_CREAT | O_TRUNC;
            dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
            dup2(open(outPath.c_str(), flags, 0644), STDOUT_FILENO);
            dup2(open(errPath.c_str(), flags, 0644), STDERR_FILENO);
            if (options.cwd.empty() || chdir(options.cwd.c_str()) == 0) {
                execve(argp[0], argp.data(), envp.data());
            }
            _exit(127);
        },
        60, &usage);
    result.maxRssKb = usage.ru_maxrss;
    result.out = ReadFile(outPath);
    result.err = ReadFile(errPath);
    return result;
}

int RunInChild(const std::function<int()>& body, int timeoutSeconds) {
    return ForkAndWait(body, timeoutSeconds, nullptr);
}

bool WaitUntil(const std::function<bool()>& done, int timeoutSeconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

std::vector<zoltool::LogLine> ReadOfflineLog(const std::string& dir,
                                             std::vector<zoltool::DamagedLine>* damaged) {
    std::vector<zoltool::LogLine> lines;
    std::vector<zoltool::DamagedLine> ignored;
    std::vector<zoltool::DamagedLine>& bad = damaged != nullptr ? *damaged : ignored;
    bad.clear();
    std::vector<std::string> files;
    std::string error;
    zoltool::FindLogFiles(dir, files, error);  // none when it fails
    for (const std::string& file : files) {
        zoltool::ReadLogFile(file, lines, bad, error);
    }
    return lines;
}

std::string Address(const void* p) {
    char text[32];
    std::snprintf(text, sizeof(text), "%p", p);
    return text;
}

void RemoveTree(const std::string& path) {
    std::error_code error;  // what cannot be removed stays
    std::filesystem::remove_all(path, error);
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

std::vector<std::string> ListDir(const std::string& path) {
    std::vector<std::string> names;
    std::error_code error;  // a directory that cannot be read lists as empty
    for (std::filesystem::directory_iterator it(path, error), end; !error && it != end;
         it.increment(error)) {
        names.push_back(it->path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

int CountOpenFds() {
    // The directory stream holds one descriptor of its own while it is read.
    return static_cast<int>(ListDir("/proc/self/fd").size()) - 1;
}

int CountSharedMappings() {
    std::ifstream in("/proc/self/maps");
    int shared = 0;
    for (std::string line; std::getline(in, line);) {
        // "start-end perms ...": the fourth permission letter is 's' for a shared mapping.
        const size_t perms = line.find(' ');
        shared += perms != std::string::npos && perms + 4 < line.size() && line[perms + 4] == 's';
    }
    return shared;
}

}  // namespace zoltest
