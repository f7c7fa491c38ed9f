// A process that used the signal task exits promptly and cleanly, every time: the destructor's
// stop request cannot be missed by the loop, whatever the loop is doing at that moment.
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "zoltest.h"

namespace {

struct HelperRun {
    bool finished = false;  // false: still running at the deadline, and killed
    int status = 0;
    std::string output;  // stdout and stderr together
};

// Runs the helper in `mode`; kills it if it has not ended after `limit`. The limit only
// separates "exits" from "hangs", it measures nothing.
HelperRun RunHelper(const char* mode, std::chrono::seconds limit = std::chrono::seconds(60)) {
    char path[] = "/tmp/zolsignaltask-exit-XXXXXX";
    const int out = mkstemp(path);
    EXPECT_GE(out, 0);
    HelperRun run;
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out, STDOUT_FILENO);
        dup2(out, STDERR_FILENO);
        execl(ZOL_SIGNALTASK_EXIT_HELPER, ZOL_SIGNALTASK_EXIT_HELPER, mode, nullptr);
        _exit(127);
    }
    close(out);
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!run.finished && std::chrono::steady_clock::now() < deadline) {
        const pid_t done = waitpid(pid, &run.status, WNOHANG);
        if (done == pid) {
            run.finished = true;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    if (!run.finished) {
        kill(pid, SIGKILL);
        waitpid(pid, &run.status, 0);
    }
    run.output = zoltest::ReadFile(path);
    unlink(path);
    return run;
}

void ExpectCleanExit(const HelperRun& run, int attempt) {
    ASSERT_TRUE(run.finished) << "attempt " << attempt << " hung at exit:\n" << run.output;
    ASSERT_TRUE(WIFEXITED(run.status) && WEXITSTATUS(run.status) == 0)
        << "attempt " << attempt << " status " << run.status << ":\n"
        << run.output;
    // The destructor's order: everything dropped first, then the loop stopped.
    const size_t dropped = run.output.find("remove() [");
    const size_t stopped = run.output.find("loop stop");
    ASSERT_NE(std::string::npos, dropped) << run.output;
    EXPECT_NE(std::string::npos, run.output.find("disconnect all", dropped)) << run.output;
    ASSERT_NE(std::string::npos, stopped) << run.output;
    EXPECT_LT(dropped, stopped) << run.output;
}

constexpr int kAttempts = 50;

TEST(SignalTaskExitTest, ExitRightAfterCreationNeverHangs) {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        ExpectCleanExit(RunHelper("idle"), attempt);
    }
}

TEST(SignalTaskExitTest, ExitWhileTasksRunNeverHangs) {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        ExpectCleanExit(RunHelper("busy"), attempt);
    }
}

TEST(SignalTaskExitTest, ExitServesNoPendingSignal) {
    for (int attempt = 0; attempt < kAttempts / 5; ++attempt) {
        const HelperRun run = RunHelper("pending");
        ExpectCleanExit(run, attempt);
        EXPECT_EQ(std::string::npos, run.output.find("ran 2")) << run.output;
        EXPECT_EQ(std::string::npos, run.output.find("ran 3")) << run.output;
        EXPECT_EQ(std::string::npos, run.output.find("task 2 done")) << run.output;
        EXPECT_EQ(std::string::npos, run.output.find("task 3 done")) << run.output;
    }
}

// The loop's lines also go to the offline log, whose workers write them to files while the
// process exits: the offline log must outlive the loop.
TEST(SignalTaskExitTest, ExitWithTheOfflineLogOnNeverHangs) {
    zoltest::DeviceRoot root;
    root.MakeDir("/data/vendor/camera/offlinelog");
    setenv("persist.vendor.camera.zoltools.offlinelog", "1", 1);  // for the helper processes
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        ExpectCleanExit(RunHelper(attempt % 2 == 0 ? "busy" : "pending"), attempt);
    }
    EXPECT_FALSE(zoltest::ListDir(root.Resolve("/data/vendor/camera/offlinelog")).empty());
}

}  // namespace
