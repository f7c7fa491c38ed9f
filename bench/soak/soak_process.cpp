#include "soak_process.h"

#include <dirent.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/uniquefd.h"

namespace soak {

long ResidentKiB() {
    const zol::UniqueFile status(std::fopen("/proc/self/status", "r"));
    if (!status) {
        return 0;
    }
    long kib = 0;
    char line[256];
    while (std::fgets(line, sizeof(line), status.get()) != nullptr) {
        if (std::strncmp(line, "VmRSS:", 6) == 0) {
            kib = std::strtol(line + 6, nullptr, 10);
            break;
        }
    }
    return kib;
}

int OpenDescriptors() {
    const zol::UniqueDir dir(opendir("/proc/self/fd"));
    if (!dir) {
        return -1;
    }
    int count = 0;
    while (const dirent* entry = readdir(dir.get())) {
        if (entry->d_name[0] != '.') {
            ++count;
        }
    }
    return count - 1;  // the listing's own descriptor
}

int SharedMappings() {
    const zol::UniqueFile maps(std::fopen("/proc/self/maps", "r"));
    if (!maps) {
        return -1;
    }
    int shared = 0;
    char line[512];
    bool lineStart = true;
    while (std::fgets(line, sizeof(line), maps.get()) != nullptr) {
        // "start-end perms ...": the fourth permission letter. Long lines come in pieces.
        const char* perms = lineStart ? std::strchr(line, ' ') : nullptr;
        shared += perms != nullptr && std::strlen(perms) > 4 && perms[4] == 's';
        lineStart = std::strchr(line, '\n') != nullptr;
    }
    return shared;
}

namespace {

long Median(std::vector<long> values) {
    if (values.empty()) {
        return 0;
    }
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

}  // namespace

long SteadyGrowthKiB(const std::vector<long>& samples) {
    if (samples.size() < 4) {
        return 0;
    }
    const size_t quarter = samples.size() / 4;
    const std::vector<long> first(samples.begin(), samples.begin() + quarter);
    const std::vector<long> last(samples.end() - quarter, samples.end());
    return Median(last) - Median(first);
}

}  // namespace soak
