// Helpers shared by the buffer management tests: matching whole log lines, and looking into the
// pool's process-wide lists under their locks.
#pragma once

#include <android/log.h>

#include <cstdarg>
#include <cstdio>
#include <regex>
#include <string>
#include <vector>

#include "zolbuffermanager.h"
#include "zoltest.h"

namespace buftest {

// printf into a std::string; used to build expected log lines (a "%p" prints the same text the
// library printed for the same address).
__attribute__((format(printf, 1, 2))) inline std::string Fmt(const char* fmt, ...) {
    char text[1024];
    va_list args;
    va_start(args, fmt);
    vsnprintf(text, sizeof(text), fmt, args);
    va_end(args);
    return text;
}

// A whole-line pattern from an expected text in which "#" stands for a source line number.
inline std::regex LinePattern(const std::string& expected) {
    std::string pattern;
    for (char c : expected) {
        if (c == '#') {
            pattern += "[0-9]+";
        } else if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) {
            pattern += '\\';
            pattern += c;
        } else {
            pattern += c;
        }
    }
    return std::regex(pattern);
}

// Lines of this priority whose whole text is `expected` ("#" for the line number).
inline size_t CountLines(const zoltest::LogCapture& log, int priority,
                         const std::string& expected) {
    const std::regex pattern = LinePattern(expected);
    size_t count = 0;
    for (const std::string& text : log.Texts(priority)) {
        if (std::regex_match(text, pattern)) {
            ++count;
        }
    }
    return count;
}

// The free blocks of one size and type, oldest first.
inline std::vector<void*> FreeBlocks(ZOLBufferType type, uint32_t size) {
    std::lock_guard<std::mutex> lock(ZOLBufferPool::m_freeBufferListLock);
    std::vector<void*> out;
    const auto& freeList = ZOLBufferPool::m_freeBufferList[type];
    auto found = freeList.find(size);
    if (found != freeList.end()) {
        for (const ZOLBufferPoolBufferInfo& info : found->second) {
            out.push_back(info.pBuffer);
        }
    }
    return out;
}

// Number of free blocks of every size and type.
inline size_t FreeBlockCount() {
    std::lock_guard<std::mutex> lock(ZOLBufferPool::m_freeBufferListLock);
    size_t count = 0;
    for (const auto& freeList : ZOLBufferPool::m_freeBufferList) {
        for (const auto& sizeAndQueue : freeList) {
            count += sizeAndQueue.second.size();
        }
    }
    return count;
}

inline bool IsBusy(const void* pBuffer) {
    std::lock_guard<std::mutex> lock(ZOLBufferPool::m_busyBufferListLock);
    return ZOLBufferPool::m_busyBufferList.count(const_cast<void*>(pBuffer)) == 1;
}

inline size_t BusyCount() {
    std::lock_guard<std::mutex> lock(ZOLBufferPool::m_busyBufferListLock);
    return ZOLBufferPool::m_busyBufferList.size();
}

inline uint32_t ClientCount() {
    std::lock_guard<std::mutex> lock(ZOLBufferPool::m_bufferPoolClientNumLock);
    return ZOLBufferPool::m_bufferPoolClientNum;
}

}  // namespace buftest
