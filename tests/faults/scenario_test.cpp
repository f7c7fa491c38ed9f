// Whole processes that exit, fork, stop pools or run on small stacks (scenario_helper.cpp), each
// run many times: every run must end by itself within a minute, with status 0, and its output
// must hold the lines listed, in that order, and none of the lines refused.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "fault_support.h"
#include "zoltest.h"

namespace {

enum class Fork { kNo, kAtRest, kWhileThreadsAllocate };

struct Scenario {
    const char* name;
    const char* argument;  // the helper's scenario
    int runs;
    bool offlineLog;  // on, writing below a device root of the test's own
    Fork fork;
    std::vector<std::string> inOrder;
    std::vector<std::string> refused;
};

void PrintTo(const Scenario& scenario, std::ostream* os) {
    *os << scenario.name;
}

// The exit of a process that used the signal task: everything dropped, then the loop stopped.
const std::vector<std::string> kExit = {"remove() [", "disconnect all", "loop stop"};
const std::vector<std::string> kUnserved = {"task 2 done", "task 3 done"};

const Scenario kScenarios[] = {
    {"ExitRightAfterCreation", "idle", 50, false, Fork::kNo, kExit, {}},
    {"ExitWhileTasksRun", "busy", 50, false, Fork::kNo, kExit, {}},
    {"ExitServesNoPendingSignal", "pending", 10, false, Fork::kNo, kExit, kUnserved},
    {"ExitWhileTheLoopLogsToFiles", "busy", 50, true, Fork::kNo, kExit, {}},
    {"ExitWhileThreadsCallTheSignalTask", "callers", 50, false, Fork::kNo, {}, {}},
    {"ForkAtRest", "fork", 50, true, Fork::kAtRest, {}, {}},
    {"ForkUnderEightLoggingThreads", "fork-loaded", 50, true, Fork::kWhileThreadsAllocate, {}, {}},
    {"PoolStoppedFromSeveralThreadsAndFromItsTask", "pool-stop", 20, false, Fork::kNo, {}, {}},
    {"DumpAndReadOnA16KiBStack", "small-stack", 5, false, Fork::kNo, {}, {}},
    {"ThrowingTasksAreLoggedAndSkipped", "throw", 5, false, Fork::kNo, {}, {}},
};

// Runs the helper once, its output (stdout and stderr) to `out`; the wait status. timeout(1)
// kills a run that hangs, which then fails as any other status would. No shell between: it
// would drop the properties (their names are not shell names).
int RunHelper(const char* argument, const std::string& out) {
    const char* argv[] = {"timeout", "-s", "KILL", "60", ZOL_FAULTS_HELPER, argument, nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    pid_t pid = 0;
    int status = -1;
    if (posix_spawnp(&pid, argv[0], &actions, nullptr, const_cast<char**>(argv), environ) == 0) {
        waitpid(pid, &status, 0);
    }
    posix_spawn_file_actions_destroy(&actions);
    return status;
}

class ScenarioTest : public ::testing::TestWithParam<Scenario> {};

TEST_P(ScenarioTest, EveryRunEndsCleanly) {
    const Scenario& scenario = GetParam();
    zoltest::DeviceRoot root;
    if (scenario.offlineLog) {
        root.MakeDir(faults::kLogDir);
        setenv("persist.vendor.camera.zoltools.offlinelog", "1", 1);
    }
    // The sanitizers' runtimes in this toolchain are not made for these forks: the thread
    // sanitizer does not follow threads started in the child of a threaded process, and the
    // address sanitizer's allocator can be left locked in a child forked while others allocate.
#if defined(__SANITIZE_THREAD__)
    if (scenario.fork != Fork::kNo) {
        GTEST_SKIP() << "the child starts threads after the fork of a threaded process";
    }
#elif defined(__SANITIZE_ADDRESS__)
    if (scenario.fork == Fork::kWhileThreadsAllocate) {
        GTEST_SKIP() << "the child can hang in an allocator lock held at the fork";
    }
#endif
    // The thread sanitizer waits a second at the exit of a process whose threads still run.
    const char* tsan = getenv("TSAN_OPTIONS");
    setenv("TSAN_OPTIONS", (std::string(tsan ? tsan : "") + ":atexit_sleep_ms=0").c_str(), 1);
    const std::string out = root.Resolve("/output");
    for (int run = 0; run < scenario.runs; ++run) {
        const int status = RunHelper(scenario.argument, out);
        const std::string output = zoltest::ReadFile(out);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
            << "run " << run << " status " << status << ":\n"
            << output;
        size_t at = 0;
        for (const std::string& line : scenario.inOrder) {
            at = output.find(line, at);
            ASSERT_NE(std::string::npos, at) << "run " << run << ": " << line << "\n" << output;
        }
        for (const std::string& line : scenario.refused) {
            ASSERT_EQ(std::string::npos, output.find(line)) << output;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Faults, ScenarioTest, ::testing::ValuesIn(kScenarios),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
