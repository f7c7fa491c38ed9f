// The shallow directory walk and the file-name helper.
#include <dirent.h>
#include <sys/stat.h>

#include <cstring>

#include "platform/uniquefd.h"
#include "zolbufferutil.h"

int ZOLBufferUtil::traveDir(const char* path, int depth, std::vector<std::string>& names) {
    zol::UniqueDir dir(path != nullptr ? opendir(path) : nullptr);
    if (!dir) {
        return -1;
    }
    while (const dirent* entry = readdir(dir.get())) {
        if (entry->d_name[0] == '.') {
            continue;
        }
        names.emplace_back(entry->d_name);
        // The bare name is looked up from the working directory, not from `path`: a walk only
        // descends when the two are the same. Callers rely on exactly this.
        struct stat st;
        if (stat(entry->d_name, &st) == 0 && depth <= 1 && S_ISDIR(st.st_mode)) {
            traveDir(entry->d_name, depth + 1, names);
        }
    }
    return 0;
}

const char* ZOLGetFileName(const char* path) {
    // A null path has no name in it; handing it back keeps "the input itself" for no slash.
    if (path == nullptr) {
        return path;
    }
    const char* slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}
