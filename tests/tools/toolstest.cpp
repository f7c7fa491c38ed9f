#include "toolstest.h"

#include <fcntl.h>
#include <ftw.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

extern char** environ;

namespace toolstest {

Output RunProgram(std::vector<std::string> args, const std::string& cwd) {
    TempDir dir;
    if (!cwd.empty()) {  // posix_spawn cannot change directory: a shell does
        args.insert(args.begin(), {"/bin/sh", "-c", "cd \"$0\" && exec \"$@\"", cwd});
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, (dir / "out").c_str(), O_WRONLY | O_CREAT, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, (dir / "err").c_str(), O_WRONLY | O_CREAT, 0644);
    std::vector<char*> argp;
    for (std::string& a : args) {
        argp.push_back(a.data());
    }
    argp.push_back(nullptr);
    Output result;
    pid_t pid;
    const int spawned = posix_spawn(&pid, argp[0], &actions, nullptr, argp.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        result.err = "cannot start " + args[0];
        return result;
    }
    int status = 0;
    rusage usage{};
    while (wait4(pid, &status, 0, &usage) < 0) {
    }
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.maxRssKb = usage.ru_maxrss;
    result.cpuSeconds = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                        static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    result.out = ReadFile(dir / "out");
    result.err = ReadFile(dir / "err");
    return result;
}

Output Capture(const std::function<int(const zoltool::Streams&)>& command) {
    TempDir dir;
    zoltool::Streams io;
    io.out = std::fopen((dir / "out").c_str(), "w");
    io.err = std::fopen((dir / "err").c_str(), "w");
    Output result;
    result.status = command(io);
    std::fclose(io.out);
    std::fclose(io.err);
    result.out = ReadFile(dir / "out");
    result.err = ReadFile(dir / "err");
    return result;
}

std::string Golden(const std::string& relative) {
    return std::string(ZOLTOOLS_GOLDEN_DIR) + "/" + relative;
}

std::string ReadFile(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

size_t CountLines(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

TempDir::TempDir() {
    char pattern[] = "/tmp/zoltools-test-XXXXXX";
    const char* made = mkdtemp(pattern);
    m_path = made != nullptr ? made : "";
}

TempDir::~TempDir() {
    auto remove = [](const char* path, const struct stat*, int, FTW*) { return std::remove(path); };
    nftw(m_path.c_str(), remove, 16, FTW_DEPTH | FTW_PHYS);
}

}  // namespace toolstest
