// Helpers shared by the signal-task tests.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include "zolsignaltask.h"

namespace sigtest {

// Waits until `done` holds. No deadline: ctest's timeout catches a hang.
inline void WaitUntil(const std::function<bool()>& done) {
    while (!done()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

inline WrapperTask MakeTask(std::function<void()> work) {
    WrapperTask task;
    task.task = std::move(work);
    return task;
}

// Registers a task that only marks itself, signals `id` and waits until it has run: every
// signal raised before this call has been served (or dropped) by then.
inline void Drain(unsigned long id) {
    ZOLSignalTask* signalTask = ZOLSignalTask::instance();
    WrapperTask marker = MakeTask([] {});
    signalTask->insert(id, WrapperTask(marker));
    signalTask->signal(id);
    WaitUntil([&] { return marker.done->load(); });
}

// A gate a task can wait at while the test arranges the loop's queue.
class Gate {
public:
    void Open() { m_open.store(true); }
    void Wait() const {
        WaitUntil([this] { return m_open.load(); });
    }

private:
    std::atomic<bool> m_open{false};
};

}  // namespace sigtest
