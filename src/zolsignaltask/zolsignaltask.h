// ZOLSignalTask: one background thread that runs one-shot tasks when their identifier is raised.
//
// Callers register (connect) a task under a numeric identifier with insert(id, task) and later
// raise the identifier with signal(id). The background thread serves raised identifiers in the
// order in which they were raised: it looks up the task registered under each one, removes it
// from the registry and runs it. A task therefore runs at most once per registration, always on
// the background thread. A signal whose identifier has no task when it is served is dropped.
//
//   WrapperTask work;
//   work.task = [] { ... };
//   ZOLSignalTask::instance()->insert(kMyId, std::move(work));  // copied: `work` keeps the flags
//   ...
//   ZOLSignalTask::instance()->signal(kMyId);                  // runs once, on the loop thread
//   ...
//   if (*work.done) { ... }                                    // the task has returned
//
// Lifetime: the single instance and its thread are created by the first instance() call. At
// process exit (or when the library is unloaded) every pending signal and every registered task
// is dropped unrun ("disconnect all"), then the thread is stopped and joined; a task that is
// running at that moment is allowed to finish. The instance itself is never destroyed, so a
// thread that still calls it while the process exits finds it whole: it takes registrations
// and signals, and nothing runs them any more. The offline log is created before the instance,
// so that it outlives the loop's last lines. Like remove(), the exit waits for a running task:
// a task that calls exit() blocks for ever.
//
// A task that throws is caught by the loop, which logs "task <id> threw an exception" with the
// callable (its address when it is a plain function) at error level, counts the task as done
// and goes on.
//
// fork: both locks are held across fork (a fork waits for a running task to return, unless
// the task itself forks), so the child finds them free. The child has no loop thread: it takes
// registrations and signals, nothing runs them, and its exit has nothing to join.
//
// Locks: m_signalMutex guards m_signals and m_stop and is the lock of m_cond; m_taskMutex guards
// m_tasks and is held while a task runs. No operation holds both. A task may call signal(),
// insert(id) or notify() on the instance; a task that calls insert(id, task), remove() or
// disconnect() on it blocks for ever, and callers of those operations wait while a task runs.
//
// Every operation logs at level I with the source position, the operation's name and the
// instance's address: "<file>:<line> <name>() [<address>] <message>".
#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <thread>
#include <unordered_map>

#include "zolexport.h"
#include "zolmutex.h"

// A callable and three flags shared by every copy of it, by which the registering code learns
// what became of its task. The flags are shared, not copied: copy construction and copy
// assignment make both objects refer to the same three flags (and copy `task`).
//
// The registry keeps its own copy, so a caller that keeps its WrapperTask after insert() can
// read the flags at any time from any thread (they are atomic: the loop thread writes `done`,
// and whichever thread drops the last copy of an unrun task writes `alive`).
struct ZOL_EXPORT WrapperTask {
    // True until the last holder of an unrun task lets go of it; stays true once the task ran.
    std::shared_ptr<std::atomic<bool>> alive;
    // Set by the loop thread right after `task` returned.
    std::shared_ptr<std::atomic<bool>> done;
    // Never read: its use count is the number of WrapperTask objects sharing this task.
    std::shared_ptr<bool> holders;
    // The work. Signalling a task registered without a callable is a fatal error.
    std::function<void()> task;

    // New flags (alive true, done false) and an empty callable.
    WrapperTask();
    WrapperTask(const WrapperTask& other);
    // Shares the flags of `other` and copies its callable. The object overwritten is simply
    // released: the destructor's rule below is not applied to it.
    WrapperTask& operator=(const WrapperTask& other);
    // When the task has not run and this is its last holder, clears `alive`.
    ~WrapperTask();
};

class ZOL_EXPORT ZOLSignalTask {
public:
    // The single instance, created with its thread on the first call. Thread-safe.
    static ZOLSignalTask* instance();

    // Registers (connects) a copy of `task` under `id`, replacing any task registered there.
    // Does not wake the loop. Returns the number of registered tasks.
    unsigned long insert(unsigned long id, WrapperTask&& task) ZOL_EXCLUDES(m_taskMutex);
    // Queues `id` without waking the loop, unless it is already pending. Returns the number of
    // pending signals.
    unsigned long insert(unsigned long id) ZOL_EXCLUDES(m_signalMutex);
    // insert(id), then wakes the loop.
    void signal(unsigned long id) ZOL_EXCLUDES(m_signalMutex);
    // Wakes the loop.
    void notify();
    // Drops the pending signal and the task under `id` (logged even when there was none).
    void remove(unsigned long id) ZOL_EXCLUDES(m_signalMutex, m_taskMutex);
    // Drops every pending signal and every task.
    void remove() ZOL_EXCLUDES(m_signalMutex, m_taskMutex);
    // remove(id) / remove(), then wakes the loop.
    void disconnect(unsigned long id) ZOL_EXCLUDES(m_signalMutex, m_taskMutex);
    void disconnect() ZOL_EXCLUDES(m_signalMutex, m_taskMutex);
    // Body of the background thread: serves signals until the instance is destroyed.
    void loop() ZOL_EXCLUDES(m_signalMutex, m_taskMutex);

    // Drops everything pending ("disconnect all"), asks the loop to stop and joins it. The
    // instance is never destroyed; the same is done for it at process exit.
    ~ZOLSignalTask();

    ZOLSignalTask(const ZOLSignalTask&) = delete;
    ZOLSignalTask& operator=(const ZOLSignalTask&) = delete;

private:
    ZOLSignalTask();
    // What the destructor does; run at exit for the instance.
    void Stop() ZOL_EXCLUDES(m_signalMutex, m_taskMutex);
    static void StopAtExit();
    static void ForkPrepare();
    static void ForkParent();
    static void ForkChild();

    std::unordered_map<unsigned long, WrapperTask> m_tasks ZOL_GUARDED_BY(m_taskMutex);
    // Oldest first, no repeats.
    std::list<unsigned long> m_signals ZOL_GUARDED_BY(m_signalMutex);
    bool m_stop ZOL_GUARDED_BY(m_signalMutex) = false;
    std::list<std::thread> m_threads;   // the loop thread; touched only by the ctor and dtor
    ZOLConditionVariable m_cond;        // waited on with m_signalMutex
    [[maybe_unused]] ZOLMutex m_mutex;  // not taken by any operation
    ZOLMutex m_taskMutex;
    ZOLMutex m_signalMutex;
    // The loop thread, and the process that has it (a forked child has none). Set once.
    std::thread::id m_loopId;
    pid_t m_loopPid = 0;
};
