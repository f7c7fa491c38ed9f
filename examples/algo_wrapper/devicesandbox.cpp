#include "devicesandbox.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace example {

namespace {

bool MakeDirs(const std::string& path, std::string& error) {
    for (size_t pos = 1; pos <= path.size(); ++pos) {
        if (pos == path.size() || path[pos] == '/') {
            const std::string part = path.substr(0, pos);
            if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) {
                error = part + ": " + std::strerror(errno);
                return false;
            }
        }
    }
    return true;
}

void RemoveTree(const std::string& path) {
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) {
        return;
    }
    if (S_ISDIR(st.st_mode)) {
        for (const std::string& name : DeviceSandbox::List(path)) {
            RemoveTree(path + "/" + name);
        }
        rmdir(path.c_str());
    } else {
        unlink(path.c_str());
    }
}

}  // namespace

DeviceSandbox::DeviceSandbox(const std::string& root) {
    char cwd[PATH_MAX];
    m_root = root;
    if (!root.empty() && root[0] != '/' && getcwd(cwd, sizeof(cwd)) != nullptr) {
        m_root = std::string(cwd) + "/" + root;
    }
    while (m_root.size() > 1 && m_root.back() == '/') {
        m_root.pop_back();
    }
    setenv("ZOL_DEVICE_ROOT", m_root.c_str(), 1);
}

bool DeviceSandbox::Prepare(std::string& error) {
    if (!MakeDirs(Path("/data/vendor/camera"), error) || !MakeDirs(OfflineLogDir(), error) ||
        !MakeDirs(OutputDir(), error) || !MakeDirs(Path("/vendor/etc/camera"), error)) {
        return false;
    }
    if (access(SettingsFile().c_str(), F_OK) != 0) {
        std::ofstream(SettingsFile()) << "ZOLOfflineLog=true\n";
    }
    return true;
}

int DeviceSandbox::ClearEarlierSaves() {
    int removed = 0;
    for (const std::string& name : List(SimulationBase())) {
        if (name.rfind("SimulationIntputInfo_", 0) == 0) {
            RemoveTree(SimulationBase() + name);
            ++removed;
        }
    }
    for (const std::string& name : List(OutputDir())) {
        RemoveTree(OutputDir() + name);
    }
    return removed;
}

std::vector<std::string> DeviceSandbox::List(const std::string& dir) {
    std::vector<std::string> names;
    std::error_code error;  // a folder that cannot be read lists as empty
    for (std::filesystem::directory_iterator it(dir, error), end; !error && it != end;
         it.increment(error)) {
        names.push_back(it->path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace example
