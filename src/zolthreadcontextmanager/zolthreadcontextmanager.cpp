#include "zolthreadcontextmanager.h"

// The table and its lock are built by this unit's static initialisation when the library is
// loaded, and destroyed at unload.
std::map<unsigned int, ZOLThreadContext> ZOLThreadContextManager::m_threadIdToContextMap;
ZOLMutex ZOLThreadContextManager::m_threadIdToContextMapLock;

int ZOLThreadContextManager::MapContextToThreadId(unsigned int threadId,
                                                  ZOLThreadContext* context) {
    if (context == nullptr) {
        return kNullContext;
    }
    ZOLMutexLocker lock(m_threadIdToContextMapLock);
    // emplace never overwrites: a thread keeps the first context it was given.
    const bool inserted = m_threadIdToContextMap.emplace(threadId, *context).second;
    return inserted ? kDone : kAlreadyMapped;
}

int ZOLThreadContextManager::UnmapContextToThreadId(unsigned int threadId) {
    ZOLMutexLocker lock(m_threadIdToContextMapLock);
    return m_threadIdToContextMap.erase(threadId) != 0 ? kDone : kNoContext;
}

int ZOLThreadContextManager::GetContextByThreadId(unsigned int threadId,
                                                  ZOLThreadContext& context) {
    ZOLMutexLocker lock(m_threadIdToContextMapLock);
    const auto it = m_threadIdToContextMap.find(threadId);
    if (it == m_threadIdToContextMap.end()) {
        return kNoContext;
    }
    context = it->second;
    return kDone;
}

int ZOLThreadContextManager::TransitionMapping(unsigned int fromThreadId, unsigned int toThreadId) {
    ZOLMutexLocker lock(m_threadIdToContextMapLock);
    const auto it = m_threadIdToContextMap.find(fromThreadId);
    if (it == m_threadIdToContextMap.end()) {
        return kNoContext;
    }
    const ZOLThreadContext moved = it->second;
    m_threadIdToContextMap.erase(it);
    // Insert-if-absent: a context the target thread already has wins over the moved one.
    m_threadIdToContextMap.emplace(toThreadId, moved);
    return kDone;
}
