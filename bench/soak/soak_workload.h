// The soak's workload: what each of its threads does in a loop, and the counts and invariant
// violations they add up. One Workload per run; its threads share the managers, the signal
// task and a thread pool, as the threads of a camera process do.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "zolbuffermanager.h"
#include "zolthreadpool.h"

namespace soak {

struct Counts {
    std::atomic<uint64_t> rawBuffers{0};    // raw buffers allocated, checked and freed
    std::atomic<uint64_t> images{0};        // two-plane images likewise
    std::atomic<uint64_t> debugLines{0};    // lines through the debug log (and offline log)
    std::atomic<uint64_t> offlineLines{0};  // lines straight to the offline log
    std::atomic<uint64_t> signalTasks{0};   // tasks registered and signalled, seen run once
    std::atomic<uint64_t> disconnected{0};  // tasks registered and disconnected, never run
    std::atomic<uint64_t> poolTasks{0};     // thread-pool tasks submitted
    std::atomic<uint64_t> poolTasksRun{0};  // ... and run
    std::atomic<uint64_t> psiReads{0};
    std::atomic<uint64_t> shortManagers{0};  // managers made and destroyed on the way
    std::atomic<uint64_t> violations{0};

    uint64_t Operations() const;
};

class Workload {
public:
    // Every soak line carries `linePadding` more bytes (long lines cross file rotations sooner).
    explicit Workload(size_t linePadding = 0);
    ~Workload();

    // The body of soak thread `index`; returns when `stop` is set, with everything it holds
    // released and every task it started finished (or counted as a violation).
    void Run(int index, const std::atomic<bool>& stop);

    // Waits for the thread-pool tasks still queued; false (and a violation) if they never end.
    bool DrainPool();

    Counts& counts() { return m_counts; }
    const std::string& linePadding() const { return m_linePadding; }
    // The text of the first violation, for the report.
    std::string FirstViolation() const;

    // Marks every soak line, so that the files can be checked against what was logged.
    static constexpr const char* kLineMark = "soak-line";

    // Reports a broken invariant (thread-safe); the run fails.
    void Violation(const char* what);

    // The ledger of blocks handed out and not yet given back, over every thread and manager.
    // A block handed out while the ledger holds it would be in two holders' hands at once. A
    // holder takes its block off the ledger before it frees it (after that, the pool may hand
    // it to someone else at once).
    void BlockOut(const void* block);
    void BlockBack(const void* block);

    // Once the threads are done: the ledger, the pool's busy list and its busy figures are empty
    // and no size and type has more than ten free blocks (each broken rule is a violation). Gives
    // the number of free DMA blocks, each of which holds a descriptor and a shared mapping until
    // the last manager goes.
    size_t CheckPool();

private:
    Counts m_counts;
    const std::string m_linePadding;
    ZOLBufferManager m_shared{"soak-shared"};  // used by every thread
    ZOLThreadPool m_pool;
    mutable std::mutex m_violationMutex;
    std::string m_firstViolation;  // guarded by m_violationMutex
    std::mutex m_ledgerMutex;
    std::set<const void*> m_ledger;  // guarded by m_ledgerMutex
};

}  // namespace soak
