// A process that uses the signal task and then exits, for the exit tests. It writes the
// library's log lines to stderr and "ran <id>" to stdout for every task that runs.
//
//   signaltask_exit_helper idle      create the instance and exit at once
//   signaltask_exit_helper busy      exit while tasks run and signals are being raised
//   signaltask_exit_helper pending   exit with two signals pending behind a running task
#include <android/log.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>

#include "signaltask_testutil.h"
#include "zolsignaltask.h"

namespace {

void Say(const std::string& text) {
    const std::string line = text + "\n";
    ssize_t ignored = write(STDOUT_FILENO, line.data(), line.size());
    (void)ignored;
}

WrapperTask Announcing(
    unsigned long id, std::function<void()> then = [] {}) {
    return sigtest::MakeTask([id, then] {
        Say("ran " + std::to_string(id));
        then();
    });
}

void Busy(ZOLSignalTask* signalTask) {
    for (unsigned long id = 1; id <= 20; ++id) {
        // Each task raises the next signal, so the loop is still working when main returns.
        signalTask->insert(id, Announcing(id, [signalTask, id] { signalTask->signal(id + 1); }));
    }
    signalTask->signal(1);
    for (unsigned long id = 100; id < 110; ++id) {
        signalTask->signal(id);  // nothing registered: consumed
    }
}

// Task 1 holds the loop until the exit has taken every pending signal off the queue (seen
// through insert(id)'s count), so that signals 2 and 3 are still pending when the destructor
// runs, whoever gets there first. Neither may be served.
std::atomic<bool> g_queued{false};

void Pending(ZOLSignalTask* signalTask) {
    signalTask->insert(1, Announcing(1, [signalTask] {
                           sigtest::WaitUntil([] { return g_queued.load(); });
                           // 2 and 3 are queued: the probe joins them (3) until the queue is
                           // emptied, when it is alone (1).
                           constexpr unsigned long kProbe = 99;  // never registered
                           while (signalTask->insert(kProbe) != 1) {
                               usleep(1000);
                           }
                       }));
    signalTask->insert(2, Announcing(2));
    signalTask->insert(3, Announcing(3));
    signalTask->signal(1);
    signalTask->signal(2);
    signalTask->signal(3);
    g_queued.store(true);
}

}  // namespace

int main(int argc, char** argv) {
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s idle|busy|pending\n", argv[0]);
        return 2;
    }
    ZOLSignalTask* signalTask = ZOLSignalTask::instance();
    if (std::strcmp(argv[1], "busy") == 0) {
        Busy(signalTask);
    } else if (std::strcmp(argv[1], "pending") == 0) {
        Pending(signalTask);
    } else if (std::strcmp(argv[1], "idle") != 0) {
        return 2;
    }
    return 0;  // the signal task is destroyed by the exit handlers
}
