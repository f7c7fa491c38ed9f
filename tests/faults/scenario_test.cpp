// Whole processes that exit, fork, stop pools, run on small stacks or throw (scenario_helper.cpp),
// each run many times: every run must end by itself within a minute with status 0, and its
// output must hold the lines listed, in that order, and none of the lines refused.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "zoltest.h"

namespace {

enum class Fork { kNo, kAtRest, kWhileThreadsLog };

struct Scenario {
    const char* name;
    const char* argument;  // the helper's scenario
    int runs;
    bool offlineLog;  // on, writing below a device root of the test's own
    Fork fork;
    std::vector<std::string> inOrder;
    std::vector<std::string> refused;
};

// The exit of a process that used the signal task: everything dropped, then the loop stopped.
const std::vector<std::string> kExit = {"remove() [", "disconnect all", "loop stop"};
const std::vector<std::string> kPendingServed = {"task 2 done", "task 3 done"};

const Scenario kScenarios[] = {
    {"ExitRightAfterCreation", "idle", 50, false, Fork::kNo, kExit, {}},
    {"ExitWhileTasksRun", "busy", 50, false, Fork::kNo, kExit, {}},
    {"ExitServesNoPendingSignal", "pending", 10, false, Fork::kNo, kExit, kPendingServed},
    {"ExitWhileTheLoopLogsToFiles", "busy", 50, true, Fork::kNo, kExit, {}},
    {"ExitWhileThreadsCallTheSignalTask", "callers", 50, false, Fork::kNo, {}, {}},
    {"ExitWhileThreadsAreInsideBufferManagers", "managers", 50, false, Fork::kNo, {}, {}},
    {"ForkAtRest", "fork", 50, true, Fork::kAtRest, {}, {}},
    {"ForkUnderEightLoggingThreads", "fork-loaded", 50, true, Fork::kWhileThreadsLog, {}, {}},
    {"PoolStoppedFromSeveralThreadsAndFromItsTask", "pool-stop", 20, false, Fork::kNo, {}, {}},
    {"DumpAndReadOnA16KiBStack", "small-stack", 5, false, Fork::kNo, {}, {}},
    {"ThrowingTasksAreLoggedAndSkipped", "throw", 5, false, Fork::kNo, {}, {}},
};

void PrintTo(const Scenario& scenario, std::ostream* os) {
    *os << scenario.name;
}

class ScenarioTest : public ::testing::TestWithParam<Scenario> {};

TEST_P(ScenarioTest, EveryRunEndsCleanly) {
    const Scenario& scenario = GetParam();
    // The sanitizers' runtimes in this toolchain are not made for these forks: the thread
    // sanitizer does not follow threads started in the child of a threaded process, and the
    // address sanitizer's allocator can be left locked in a child forked while others allocate.
#if defined(__SANITIZE_THREAD__)
    if (scenario.fork != Fork::kNo) {
        GTEST_SKIP() << "the child starts threads after the fork of a threaded process";
    }
#elif defined(__SANITIZE_ADDRESS__)
    if (scenario.fork == Fork::kWhileThreadsLog) {
        GTEST_SKIP() << "the child can hang in an allocator lock held at the fork";
    }
#endif
    if (ZOLTEST_EMULATED && scenario.fork != Fork::kNo) {
        GTEST_SKIP() << "user-mode emulation cannot fork a process that has threads";
    }
    zoltest::DeviceRoot root;
    root.MakeDir("/data/vendor/camera/offlinelog");
    // The thread sanitizer waits a second at the exit of a process whose threads still run.
    const char* tsan = getenv("TSAN_OPTIONS");
    zoltest::RunOptions options;
    options.env = {"TSAN_OPTIONS=" + std::string(tsan ? tsan : "") + ":atexit_sleep_ms=0"};
    if (scenario.offlineLog) {
        options.env.push_back("persist.vendor.camera.zoltools.offlinelog=1");
    }
    for (int run = 0; run < scenario.runs; ++run) {
        const zoltest::RunResult result =
            zoltest::Run({ZOL_FAULTS_HELPER, scenario.argument}, options);
        const std::string output = result.out + result.err;
        ASSERT_EQ(0, result.status) << "run " << run << ":\n" << output;
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
