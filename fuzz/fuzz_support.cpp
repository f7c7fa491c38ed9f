#include "fuzz_support.h"

#include <android/log.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace zolfuzz {

namespace {

std::string g_root;

void DropLine(const struct __android_logger_data*, const char*) {}

std::string MakeTempDir(const char* parent, const char* name) {
    std::string pattern = std::string(parent) + "/" + name + "-XXXXXX";
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    if (mkdtemp(buf.data()) == nullptr) {
        return std::string();
    }
    return std::string(buf.data());
}

int RemoveEntry(const char* path, const struct stat*, int, struct FTW*) {
    ::remove(path);
    return 0;
}

}  // namespace

void Setup() {
    if (!g_root.empty()) {
        return;
    }
    const char* tmp = std::getenv("TMPDIR");
    for (const char* parent : {"/dev/shm", tmp, "/tmp"}) {
        if (parent != nullptr && parent[0] != '\0') {
            g_root = MakeTempDir(parent, "zolfuzz-root");
            if (!g_root.empty()) {
                break;
            }
        }
    }
    if (g_root.empty()) {
        std::perror("zolfuzz: no temporary directory");
        std::abort();
    }
    const std::string cwd = g_root + "/cwd";
    MakeDirs(cwd);
    if (chdir(cwd.c_str()) != 0) {
        std::perror("zolfuzz: chdir");
        std::abort();
    }
    MakeDirs(g_root + "/device");
    setenv("ZOL_DEVICE_ROOT", (g_root + "/device").c_str(), 1);
    setenv("persist.vendor.camera.zoltools.offlinelog", "0", 1);
    __android_log_set_logger(DropLine);
    // The root is left behind if the fuzzer is killed; it is small and below a temp directory.
    std::atexit([] { RemoveTree(g_root); });
}

std::string DevicePath(const std::string& devicePath) {
    return g_root + "/device" + devicePath;
}

bool TryWriteFile(const std::string& path, const uint8_t* data, size_t size) {
    // A name taken by anything but a file (a FIFO would block the open) is left as it is.
    struct stat st;
    if (lstat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) {
        return false;
    }
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        return false;
    }
    const bool written = size == 0 || std::fwrite(data, size, 1, file) == 1;
    return std::fclose(file) == 0 && written;
}

void WriteFile(const std::string& path, const uint8_t* data, size_t size) {
    if (!TryWriteFile(path, data, size)) {
        std::perror(("zolfuzz: write " + path).c_str());
        std::abort();
    }
}

bool TryMakeDirs(const std::string& path) {
    for (size_t at = 1; at <= path.size(); ++at) {
        if (at == path.size() || path[at] == '/') {
            const std::string prefix = path.substr(0, at);
            struct stat st;
            if (mkdir(prefix.c_str(), 0700) != 0 &&
                !(errno == EEXIST && stat(prefix.c_str(), &st) == 0 && S_ISDIR(st.st_mode))) {
                return false;
            }
        }
    }
    return true;
}

void MakeDirs(const std::string& path) {
    if (!TryMakeDirs(path)) {
        std::perror(("zolfuzz: mkdir " + path).c_str());
        std::abort();
    }
}

void RemoveTree(const std::string& path) {
    nftw(path.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
}

ReadGeometry DocumentedReadGeometry(const ZOLImageBuffer& buffer) {
    // Row bytes of plane 0 as width * num / den, and whether a plane 1 of height / 2 rows
    // follows (only from two rows up). Read-back supports formats 0, 1, 3, 5, 6 and 7.
    size_t num = 0;
    size_t den = 1;
    bool twoPlanes = false;
    switch (buffer.format) {
        case 0:
        case 1:
            num = 1;
            twoPlanes = true;
            break;
        case 3:
            num = 12;
            den = 8;
            break;
        case 5:
            num = 2;
            break;
        case 6:
            num = 2;
            twoPlanes = true;
            break;
        case 7:
            num = 1;
            break;
        default:
            break;
    }
    ReadGeometry g;
    if (num == 0) {
        return g;
    }
    g.supported = true;
    g.rowBytes[0] = size_t{buffer.width} * num / den;
    g.rows[0] = buffer.height;
    if (twoPlanes && buffer.height >= 2) {
        g.rowBytes[1] = g.rowBytes[0];
        g.rows[1] = buffer.height / 2;
    }
    for (int p = 0; p < 2; ++p) {
        if (g.rows[p] > 0 && g.rowBytes[p] > 0) {
            g.span[p] = (g.rows[p] - 1) * buffer.planeStride + g.rowBytes[p];
        }
    }
    return g;
}

}  // namespace zolfuzz
