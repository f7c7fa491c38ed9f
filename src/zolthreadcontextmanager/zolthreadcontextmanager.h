// ZOLThreadContextManager: one process-wide table from kernel thread identifiers (gettid) to a
// per-thread context value, so that work handed to another thread can take its context along
// (the thread pool's workers adopt the submitter's context while they run its task).
//
// All members are static; the table and its lock are built when the library is loaded and
// live until it is unloaded. m_threadIdToContextMapLock guards m_threadIdToContextMap; the
// thread pool takes the same lock when it reads and writes the table directly.
#pragma once

#include <cstdint>
#include <map>
#include <type_traits>

#include "zolexport.h"
#include "zolmutex.h"

// A per-thread context: 40 bytes copied whole; the library never looks inside. Its users give
// the five words their meaning.
struct ZOLThreadContext {
    uint64_t words[5];
};
static_assert(sizeof(ZOLThreadContext) == 40, "a thread context is 40 bytes");
static_assert(alignof(ZOLThreadContext) == 8, "a thread context is 8-byte aligned");
static_assert(std::is_trivially_copyable<ZOLThreadContext>::value, "copied whole");

class ZOL_EXPORT ZOLThreadContextManager {
public:
    // Result codes.
    static constexpr int kDone = 0;
    static constexpr int kAlreadyMapped = 2;
    static constexpr int kNoContext = 3;
    static constexpr int kNullContext = 4;

    // Stores a copy of *context under threadId: 0; 2 when the thread already has a context
    // (which is kept); 4 when context is null.
    static int MapContextToThreadId(unsigned int threadId, ZOLThreadContext* context)
        ZOL_EXCLUDES(m_threadIdToContextMapLock);
    // Removes the entry of threadId: 0, or 3 when there was none.
    static int UnmapContextToThreadId(unsigned int threadId)
        ZOL_EXCLUDES(m_threadIdToContextMapLock);
    // Copies the entry of threadId into context: 0, or 3 (context untouched).
    static int GetContextByThreadId(unsigned int threadId, ZOLThreadContext& context)
        ZOL_EXCLUDES(m_threadIdToContextMapLock);
    // Moves the entry of fromThreadId to toThreadId; an entry toThreadId already has is kept
    // and the moved context discarded. 0, or 3 when fromThreadId has none.
    static int TransitionMapping(unsigned int fromThreadId, unsigned int toThreadId)
        ZOL_EXCLUDES(m_threadIdToContextMapLock);

    static std::map<unsigned int, ZOLThreadContext> m_threadIdToContextMap
        ZOL_GUARDED_BY(m_threadIdToContextMapLock);
    static ZOLMutex m_threadIdToContextMapLock;
};
