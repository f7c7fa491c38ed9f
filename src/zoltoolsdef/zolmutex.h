// Locks the compiler checks: a mutex, its scoped locker and a condition variable that waits on
// the locker, with clang's thread-safety attributes.
//
//   class Queue {
//   public:
//       void Push(int v) ZOL_EXCLUDES(m_lock) {
//           ZOLMutexLocker lock(m_lock);
//           m_items.push_back(v);
//           m_ready.notify_one();
//       }
//   private:
//       ZOLMutex m_lock;
//       ZOLConditionVariable m_ready;               // waited on with m_lock
//       std::list<int> m_items ZOL_GUARDED_BY(m_lock);
//   };
//
// Built with clang and -Wthread-safety, a member read or written without its lock, a lock taken
// twice or a function called without the lock it requires is a compile error; with other
// compilers the attributes are empty. The macros carry the library's prefix because the public
// headers use them and a user's build may define the unprefixed names itself.
//
// ZOLMutex is a std::mutex (a subclass adding nothing but the attributes), and
// ZOLConditionVariable a std::condition_variable: code that locks a public member with
// std::lock_guard<std::mutex>, or notifies one, builds and behaves as before; only the
// annotated calls are checked.
#pragma once

#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define ZOL_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ZOL_THREAD_ANNOTATION(x)
#endif

#define ZOL_CAPABILITY(x) ZOL_THREAD_ANNOTATION(capability(x))
#define ZOL_SCOPED_CAPABILITY ZOL_THREAD_ANNOTATION(scoped_lockable)
#define ZOL_GUARDED_BY(x) ZOL_THREAD_ANNOTATION(guarded_by(x))
#define ZOL_PT_GUARDED_BY(x) ZOL_THREAD_ANNOTATION(pt_guarded_by(x))
#define ZOL_REQUIRES(...) ZOL_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ZOL_EXCLUDES(...) ZOL_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ZOL_ACQUIRE(...) ZOL_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ZOL_RELEASE(...) ZOL_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define ZOL_TRY_ACQUIRE(...) ZOL_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define ZOL_NO_THREAD_SAFETY_ANALYSIS ZOL_THREAD_ANNOTATION(no_thread_safety_analysis)

class ZOL_CAPABILITY("mutex") ZOLMutex : public std::mutex {
public:
    void lock() ZOL_ACQUIRE() { std::mutex::lock(); }
    void unlock() ZOL_RELEASE() { std::mutex::unlock(); }
    bool try_lock() ZOL_TRY_ACQUIRE(true) { return std::mutex::try_lock(); }
};

// Holds a ZOLMutex from construction to destruction; unlock() and lock() let go of it early and
// take it again.
class ZOL_SCOPED_CAPABILITY ZOLMutexLocker {
public:
    explicit ZOLMutexLocker(ZOLMutex& mutex) ZOL_ACQUIRE(mutex) : m_lock(mutex) {}
    ~ZOLMutexLocker() ZOL_RELEASE() {}
    ZOLMutexLocker(const ZOLMutexLocker&) = delete;
    ZOLMutexLocker& operator=(const ZOLMutexLocker&) = delete;

    void lock() ZOL_ACQUIRE() { m_lock.lock(); }
    void unlock() ZOL_RELEASE() { m_lock.unlock(); }

private:
    friend class ZOLConditionVariable;
    std::unique_lock<std::mutex> m_lock;
};

// Waits on a held ZOLMutexLocker: the mutex is let go while waiting and held again on return,
// so to the analysis it stays held throughout. Wake-ups may be spurious: wait in a loop that
// tests the condition.
class ZOLConditionVariable : public std::condition_variable {
public:
    void wait(ZOLMutexLocker& locker) { std::condition_variable::wait(locker.m_lock); }
};
