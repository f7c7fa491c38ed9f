#include "toolstest.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "zoltest.h"

extern char** environ;

namespace toolstest {

namespace {

std::string Slurp(FILE* file) {
    std::string text;
    std::rewind(file);
    char chunk[4096];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof(chunk), file)) > 0) {
        text.append(chunk, got);
    }
    return text;
}

}  // namespace

Output Capture(const std::function<int(const zoltool::Streams&)>& command) {
    zoltool::Streams io;
    io.out = std::tmpfile();
    io.err = std::tmpfile();
    io.progress = false;
    Output result;
    result.status = command(io);
    std::fflush(io.out);
    std::fflush(io.err);
    result.out = Slurp(io.out);
    result.err = Slurp(io.err);
    std::fclose(io.out);
    std::fclose(io.err);
    return result;
}

Output RunProgram(const std::vector<std::string>& argv, const std::vector<std::string>& env) {
    TempDir dir;
    const std::string outPath = dir / "stdout";
    const std::string errPath = dir / "stderr";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    std::vector<char*> args;
    for (const std::string& a : argv) {
        args.push_back(const_cast<char*>(a.c_str()));
    }
    args.push_back(nullptr);
    // This process's environment, less the variables that `env` sets anew.
    auto name = [](const std::string& entry) { return entry.substr(0, entry.find('=')); };
    std::vector<std::string> envStrings;
    for (char** e = environ; *e != nullptr; ++e) {
        bool replaced = false;
        for (const std::string& add : env) {
            replaced = replaced || name(add) == name(*e);
        }
        if (!replaced) {
            envStrings.emplace_back(*e);
        }
    }
    envStrings.insert(envStrings.end(), env.begin(), env.end());
    std::vector<char*> envp;
    for (std::string& e : envStrings) {
        envp.push_back(e.data());
    }
    envp.push_back(nullptr);

    Output result;
    pid_t pid;
    if (posix_spawn(&pid, args[0], &actions, nullptr, args.data(), envp.data()) != 0) {
        posix_spawn_file_actions_destroy(&actions);
        result.err = "cannot start " + argv[0];
        return result;
    }
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
    }
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = zoltest::ReadFile(outPath);
    result.err = zoltest::ReadFile(errPath);
    return result;
}

std::string Golden(const std::string& relative) {
    return std::string(ZOLTOOLS_GOLDEN_DIR) + "/" + relative;
}

std::string ZoltoolsBinary() {
    return ZOLTOOLS_BINARY;
}
std::string AlgoWrapperBinary() {
    return ALGO_WRAPPER_BINARY;
}

TempDir::TempDir() {
    char pattern[] = "/tmp/zoltools-test-XXXXXX";
    const char* made = mkdtemp(pattern);
    m_path = made != nullptr ? made : "";
}

TempDir::~TempDir() {
    if (!m_path.empty()) {
        zoltest::RemoveTree(m_path);
    }
}

}  // namespace toolstest
