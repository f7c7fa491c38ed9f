// The buffer pool's stats line, as the library writes it (ZOLBufferPool::LogStats, documented in
// zolbuffermanager.h): figures of the whole pool and the bytes each live manager holds.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zoltool {

struct PoolStats {
    uint64_t busy[2] = {};  // by buffer type: 0 heap, 1 DMA
    uint64_t free[2] = {};
    uint64_t peak[2] = {};
    uint64_t allocations = 0;
    uint64_t reuses = 0;
    uint64_t releases = 0;
    std::vector<std::pair<std::string, uint64_t>> managers;  // name, busy bytes; as written
    uint64_t managersLeftOut = 0;  // further managers the line had no room to name
};

// Parses the message of a log line (the text after "ZOL: "). False when it carries no stats
// line, or one that does not follow the format to the letter.
bool ParsePoolStats(std::string_view message, PoolStats& stats);

}  // namespace zoltool
