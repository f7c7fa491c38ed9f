#include "fileio.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/uniquefd.h"

namespace zoltool {

using zol::UniqueFile;

std::string ErrnoText() {
    return std::strerror(errno);
}

bool ReadWholeFile(const std::string& path, std::vector<uint8_t>& bytes, std::string& error) {
    UniqueFile file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        error = path + ": cannot open: " + ErrnoText();
        return false;
    }
    bytes.clear();
    uint8_t chunk[65536];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof(chunk), file.get())) > 0) {
        bytes.insert(bytes.end(), chunk, chunk + got);
    }
    if (std::ferror(file.get())) {
        error = path + ": read error: " + ErrnoText();
        return false;
    }
    return true;
}

bool WriteWholeFile(const std::string& path, const std::vector<uint8_t>& bytes,
                    std::string& error) {
    UniqueFile file(std::fopen(path.c_str(), "wb"));
    if (!file) {
        error = path + ": cannot create: " + ErrnoText();
        return false;
    }
    if (!bytes.empty() && std::fwrite(bytes.data(), bytes.size(), 1, file.get()) != 1) {
        error = path + ": write error: " + ErrnoText();
        return false;
    }
    if (zol::CloseFile(file) != 0) {
        error = path + ": write error: " + ErrnoText();
        return false;
    }
    return true;
}

int64_t FileSize(const std::string& path) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
        return -1;
    }
    return static_cast<int64_t>(st.st_size);
}

bool IsDirectory(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string FileKind(const std::string& path) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        return "";
    }
    return S_ISREG(st.st_mode)    ? "a regular file"
           : S_ISDIR(st.st_mode)  ? "a directory"
           : S_ISFIFO(st.st_mode) ? "a FIFO"
           : S_ISCHR(st.st_mode)  ? "a character device"
           : S_ISBLK(st.st_mode)  ? "a block device"
           : S_ISSOCK(st.st_mode) ? "a socket"
                                  : "a special file";
}

std::string WhyNotAFile(const std::string& path) {
    const std::string kind = FileKind(path);
    if (kind.empty()) {
        return errno == ENOENT || errno == ENOTDIR ? "no such file"
                                                   : "cannot look at: " + ErrnoText();
    }
    if (kind == "a regular file") {
        return "";
    }
    return "is " + kind + (kind == "a directory" ? "" : ", not a regular file");
}

bool SameFile(const std::string& a, const std::string& b) {
    struct stat sa, sb;
    return stat(a.c_str(), &sa) == 0 && stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
}

bool ListDirectory(const std::string& path, std::vector<std::string>& names, std::string& error) {
    zol::UniqueDir dir(opendir(path.c_str()));
    if (!dir) {
        error = path + ": cannot open directory: " + ErrnoText();
        return false;
    }
    names.clear();
    while (dirent* entry = readdir(dir.get())) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
            names.emplace_back(entry->d_name);
        }
    }
    std::sort(names.begin(), names.end());
    return true;
}

bool MakeDirectories(const std::string& path, std::string& error) {
    std::string partial;
    size_t pos = 0;
    while (pos <= path.size()) {
        size_t next = path.find('/', pos);
        if (next == std::string::npos) {
            next = path.size();
        }
        partial = path.substr(0, next);
        if (!partial.empty() && mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST) {
            error = partial + ": cannot create directory: " + ErrnoText();
            return false;
        }
        pos = next + 1;
    }
    if (!IsDirectory(path)) {
        error = path + ": exists and is not a directory";
        return false;
    }
    return true;
}

std::string JoinPath(const std::string& dir, const std::string& name) {
    if (dir.empty()) {
        return name;
    }
    if (dir.back() == '/') {
        return dir + name;
    }
    return dir + "/" + name;
}

}  // namespace zoltool
