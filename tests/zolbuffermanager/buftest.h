// Helpers shared by the buffer management tests: matching whole log lines, and looking into the
// pool's process-wide lists under their locks.
#pragma once

#include <BufferAllocator/BufferAllocator.h>
#include <android/log.h>
#include <sys/resource.h>

#include <csignal>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "zolbuffermanager.h"
#include "zoltest.h"

#if defined(__SANITIZE_ADDRESS__)
#define BUFTEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define BUFTEST_ASAN 1
#endif
#endif

namespace buftest {

// The mappings that leak checks compare. AddressSanitizer's allocator maps memory of its own as
// the process runs and keeps it, so under it only DMA-buffer mappings are counted (LeakSanitizer
// accounts for heap blocks); otherwise every mapping of the process counts.
inline int CountMappingsForLeakCheck() {
    return zoltest::CountSharedMappings();
}

// True when DMA buffers are memfd files here (no kernel DMA heap), which LimitFileSize can fail.
inline bool DmaBuffersAreMemfd() {
    BufferAllocator probe;
    return !probe.UsesDmaHeap();
}

// Makes the next DMA allocations fail: the memfd stand-in cannot be sized past the file size
// limit (and the limit's signal is ignored). Returns the limit to restore.
inline rlimit LimitFileSize() {
    signal(SIGXFSZ, SIG_IGN);
    rlimit saved = {};
    getrlimit(RLIMIT_FSIZE, &saved);
    rlimit small = saved;
    small.rlim_cur = 1024;
    setrlimit(RLIMIT_FSIZE, &small);
    return saved;
}

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

// True when `text` is `expected` whole, where each "#" of `expected` stands for a run of digits
// (a source line number).
inline bool MatchesLine(const std::string& text, const std::string& expected) {
    size_t t = 0;
    for (char c : expected) {
        if (c == '#') {
            const size_t start = t;
            while (t < text.size() && text[t] >= '0' && text[t] <= '9') {
                ++t;
            }
            if (t == start) {
                return false;
            }
        } else if (t >= text.size() || text[t++] != c) {
            return false;
        }
    }
    return t == text.size();
}

// Lines of this priority whose whole text is `expected` ("#" for the line number).
inline size_t CountLines(const zoltest::LogCapture& log, int priority,
                         const std::string& expected) {
    size_t count = 0;
    for (const std::string& text : log.Texts(priority)) {
        if (MatchesLine(text, expected)) {
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
