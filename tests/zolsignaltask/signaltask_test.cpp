#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "signaltask_testutil.h"
#include "zolsignaltask.h"
#include "zoltest.h"
#include "zoltoolsdef.h"

namespace {

using sigtest::Drain;
using sigtest::Gate;
using sigtest::MakeTask;
using sigtest::WaitUntil;

// Ids of the order-recording tasks.
constexpr unsigned long kGate = 1;
constexpr unsigned long kA = 10;
constexpr unsigned long kB = 11;
constexpr unsigned long kDrain = 1000;

class Recorder {
public:
    std::function<void()> Record(unsigned long id) {
        return [this, id] {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_order.push_back(id);
        };
    }
    std::vector<unsigned long> Order() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_order;
    }

private:
    std::mutex m_mutex;
    std::vector<unsigned long> m_order;
};

TEST(SignalTaskTest, InstanceIsOneObject) {
    ZOLSignalTask* first = ZOLSignalTask::instance();
    ZOLSignalTask* fromThread = nullptr;
    std::thread([&] { fromThread = ZOLSignalTask::instance(); }).join();
    EXPECT_EQ(first, fromThread);
}

TEST(SignalTaskTest, ServesInRaiseOrderAndKeepsOnePendingCopyOfAnId) {
    ZOLSignalTask* signalTask = ZOLSignalTask::instance();
    Recorder recorder;
    Gate gate;
    std::atomic<bool> gateReached{false};
    signalTask->insert(kGate, MakeTask([&] {
                           gateReached.store(true);
                           gate.Wait();
                       }));
    WrapperTask a = MakeTask(recorder.Record(kA));
    WrapperTask b = MakeTask(recorder.Record(kB));
    EXPECT_EQ(2u, signalTask->insert(kA, WrapperTask(a)));
    EXPECT_EQ(3u, signalTask->insert(kB, WrapperTask(b)));

    signalTask->signal(kGate);
    WaitUntil([&] { return gateReached.load(); });
    // The loop is busy in the gate task: these stay pending.
    EXPECT_EQ(1u, signalTask->insert(kA));
    EXPECT_EQ(2u, signalTask->insert(kB));
    EXPECT_EQ(2u, signalTask->insert(kA)) << "a pending id is not queued again";
    signalTask->notify();
    gate.Open();

    WaitUntil([&] { return a.done->load() && b.done->load(); });
    EXPECT_EQ((std::vector<unsigned long>{kA, kB}), recorder.Order());
    // Both signals were taken off the queue: a new one starts it afresh.
    Drain(kDrain);
    EXPECT_EQ(1u, signalTask->insert(kA));
}

TEST(SignalTaskTest, TaskRunsOnceOnTheLoopThread) {
    ZOLSignalTask* signalTask = ZOLSignalTask::instance();
    std::atomic<int> calls{0};
    std::thread::id ranOn;
    WrapperTask task = MakeTask([&] {
        ranOn = std::this_thread::get_id();
        ++calls;
    });
    signalTask->insert(kA, WrapperTask(task));
    signalTask->signal(kA);
    WaitUntil([&] { return task.done->load(); });
    EXPECT_NE(std::this_thread::get_id(), ranOn);
    EXPECT_TRUE(task.alive->load());

    // The registration was used up: further signals find nothing.
    signalTask->signal(kA);
    Drain(kDrain);
    EXPECT_EQ(1, calls.load());
}

TEST(SignalTaskTest, SignalBeforeRegistrationIsConsumed) {
    ZOLSignalTask* signalTask = ZOLSignalTask::instance();
    signalTask->signal(kA);
    Drain(kDrain);  // served after kA, so kA has been taken and dropped

    WrapperTask task = MakeTask([] {});
    signalTask->insert(kA, WrapperTask(task));
    Drain(kDrain);
    EXPECT_FALSE(task.done->load()) << "the early signal must not be kept for the task";

    signalTask->signal(kA);
    WaitUntil([&] { return task.done->load(); });
}

TEST(SignalTaskTest, RegisteringAgainReplacesTheTask) {
    ZOLSignalTask* signalTask = ZOLSignalTask::instance();
    std::shared_ptr<std::atomic<bool>> firstAlive;
    std::atomic<bool> firstRan{false};
    {
        WrapperTask first = MakeTask([&firstRan] { firstRan.store(true); });
        firstAlive = first.alive;
        EXPECT_EQ(1u, signalTask->insert(kA, std::move(first)));
    }
    WrapperTask second = MakeTask([] {});
    EXPECT_EQ(1u, signalTask->insert(kA, WrapperTask(second)));
    // The registry let go of the first task without the destructor's rule: nobody holds it
    // any more, yet its flag is left as it was.
    EXPECT_TRUE(firstAlive->load());

    signalTask->signal(kA);
    WaitUntil([&] { return second.done->load(); });
    EXPECT_FALSE(firstRan.load());
    EXPECT_TRUE(firstAlive->load());
}

TEST(SignalTaskTest, DisconnectClearsAliveOnlyForTheLastHolder) {
    ZOLSignalTask* signalTask = ZOLSignalTask::instance();
    std::shared_ptr<std::atomic<bool>> unheldAlive;
    {
        WrapperTask unheld = MakeTask([] {});
        unheldAlive = unheld.alive;
        signalTask->insert(kA, std::move(unheld));
    }
    WrapperTask held = MakeTask([] {});
    signalTask->insert(kB, WrapperTask(held));

    signalTask->disconnect(kA);
    signalTask->disconnect(kB);
    EXPECT_FALSE(unheldAlive->load());
    EXPECT_TRUE(held.alive->load()) << "the caller's copy still holds it";

    // Neither runs any more.
    signalTask->signal(kA);
    signalTask->signal(kB);
    Drain(kDrain);
    EXPECT_FALSE(held.done->load());
    EXPECT_TRUE(held.alive->load());
}

TEST(SignalTaskTest, DisconnectDropsPendingSignals) {
    ZOLSignalTask* signalTask = ZOLSignalTask::instance();
    Gate gate;
    std::atomic<bool> gateReached{false};
    signalTask->insert(kGate, MakeTask([&] {
                           gateReached.store(true);
                           gate.Wait();
                       }));
    WrapperTask a = MakeTask([] {});
    WrapperTask b = MakeTask([] {});
    signalTask->insert(kA, WrapperTask(a));
    signalTask->insert(kB, WrapperTask(b));
    signalTask->signal(kGate);
    WaitUntil([&] { return gateReached.load(); });
    signalTask->signal(kA);
    signalTask->signal(kB);
    // remove(id) takes the signal off the queue before it waits for the running task.
    std::thread remover([&] { signalTask->disconnect(kA); });
    WaitUntil([&] { return signalTask->insert(kB) == 1; });
    gate.Open();
    remover.join();

    WaitUntil([&] { return b.done->load(); });
    Drain(kDrain);
    EXPECT_FALSE(a.done->load());
}

TEST(SignalTaskTest, DisconnectAllDropsEverything) {
    ZOLSignalTask* signalTask = ZOLSignalTask::instance();
    WrapperTask held = MakeTask([] {});
    std::shared_ptr<std::atomic<bool>> unheldAlive;
    {
        WrapperTask unheld = MakeTask([] {});
        unheldAlive = unheld.alive;
        signalTask->insert(kB, std::move(unheld));
    }
    signalTask->insert(kA, WrapperTask(held));
    signalTask->disconnect();
    EXPECT_FALSE(unheldAlive->load());
    EXPECT_TRUE(held.alive->load());
    EXPECT_EQ(1u, signalTask->insert(kDrain + 1)) << "no signal left pending";

    // The registry keeps working afterwards.
    signalTask->signal(kA);
    Drain(kDrain);
    EXPECT_FALSE(held.done->load());
}

TEST(SignalTaskTest, TaskMayRaiseSignals) {
    ZOLSignalTask* signalTask = ZOLSignalTask::instance();
    Recorder recorder;
    WrapperTask second = MakeTask(recorder.Record(kB));
    signalTask->insert(kB, WrapperTask(second));
    signalTask->insert(kA, MakeTask([&] {
                           recorder.Record(kA)();
                           signalTask->signal(kA);  // itself: already taken off the registry
                           signalTask->signal(kB);
                       }));
    signalTask->signal(kA);
    WaitUntil([&] { return second.done->load(); });
    Drain(kDrain);
    EXPECT_EQ((std::vector<unsigned long>{kA, kB}), recorder.Order());
}

TEST(SignalTaskDeathTest, SignallingATaskWithoutCallableAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            ZOLSignalTask* signalTask = ZOLSignalTask::instance();
            signalTask->insert(kA, WrapperTask());
            signalTask->signal(kA);
            WaitUntil([] { return false; });
        },
        "signalled task has no callable");
}

// Concurrent callers: every task runs at most once, its flags agree with what happened, and
// (under TSan) nothing races.
TEST(SignalTaskTest, ConcurrentCallersKeepTheFlagsConsistent) {
    ZOLSignalTask* signalTask = ZOLSignalTask::instance();
    constexpr int kThreads = 4;
    constexpr int kTasksPerThread = 200;
    std::vector<std::atomic<int>> runs(kThreads * kTasksPerThread);
    std::vector<std::vector<WrapperTask>> kept(kThreads);
    std::vector<std::thread> callers;
    for (int t = 0; t < kThreads; ++t) {
        callers.emplace_back([&, t] {
            for (int i = 0; i < kTasksPerThread; ++i) {
                const unsigned long id = static_cast<unsigned long>(t * kTasksPerThread + i);
                WrapperTask task = MakeTask([&runs, id] { ++runs[id]; });
                kept[t].push_back(task);
                signalTask->insert(id, std::move(task));
                if (i % 3 == 0) {
                    signalTask->disconnect(id);
                }
                signalTask->signal(id);
                if (i % 5 == 0) {
                    signalTask->signal(id);
                }
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    Drain(kDrain * 10);
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kTasksPerThread; ++i) {
            const int id = t * kTasksPerThread + i;
            const WrapperTask& task = kept[t][i];
            EXPECT_EQ(i % 3 == 0 ? 0 : 1, runs[id].load()) << "task " << id;
            EXPECT_EQ(runs[id].load() == 1, task.done->load()) << "task " << id;
            EXPECT_TRUE(task.alive->load()) << "task " << id;
        }
    }
}

// Every line of the signal task, exactly, at level I.
class SignalTaskLogTest : public ::testing::Test {
protected:
    static std::string Address(const void* p) { return zoltest::Address(p); }
    // True when some captured line is "zolsignaltask.cpp:<line> <function>() [<address>]
    // <message>", exactly.
    bool HasLine(const std::string& function, const std::string& message) const {
        return m_capture.HasSourceLine(
            "zolsignaltask.cpp",
            " " + function + "() [" + Address(ZOLSignalTask::instance()) + "] " + message);
    }

    zoltest::LogCapture m_capture;
};

TEST_F(SignalTaskLogTest, WritesEveryLineWithTheInstanceAddress) {
    ZOLSignalTask* signalTask = ZOLSignalTask::instance();
    WrapperTask task = MakeTask([] {});
    signalTask->insert(42, WrapperTask(task));
    signalTask->signal(42);
    WaitUntil([&] { return task.done->load(); });
    signalTask->remove(77);
    signalTask->remove();

    EXPECT_TRUE(HasLine("insert", "try connect 42"));
    EXPECT_TRUE(HasLine("insert", "success connect 42 with 1 tasks left"));
    EXPECT_TRUE(HasLine("insert", "try signal 42"));
    EXPECT_TRUE(HasLine("insert", "success signal 42 with 1 signals left"));
    EXPECT_TRUE(HasLine("loop", "loop alive"));
    WaitUntil([&] { return HasLine("loop", "task 42 done"); });
    EXPECT_TRUE(HasLine("remove", "disconnect 77")) << "logged even though nothing was there";
    EXPECT_TRUE(HasLine("remove", "disconnect all"));
}

TEST_F(SignalTaskLogTest, RepeatedPendingSignalLogsOnlyItsAttempt) {
    ZOLSignalTask* signalTask = ZOLSignalTask::instance();
    Gate gate;
    std::atomic<bool> gateReached{false};
    signalTask->insert(kGate, MakeTask([&] {
                           gateReached.store(true);
                           gate.Wait();
                       }));
    signalTask->signal(kGate);
    WaitUntil([&] { return gateReached.load(); });
    signalTask->insert(kA);
    m_capture.Clear();
    signalTask->insert(kA);
    EXPECT_TRUE(HasLine("insert", "try signal 10"));
    EXPECT_EQ(0u, m_capture.Count("success signal"));
    gate.Open();
    Drain(kDrain);  // the gate task has returned before `gate` goes away
}

TEST_F(SignalTaskLogTest, SilentBelowLevelI) {
    ZOLSignalTask* signalTask = ZOLSignalTask::instance();
    Drain(kDrain);
    // The loop thread reads the level while it runs; it is not restored (one process per test).
    __atomic_store_n(&ZOLToolsLogLevel, 3, __ATOMIC_RELAXED);
    m_capture.Clear();
    WrapperTask task = MakeTask([] {});
    signalTask->insert(kA, WrapperTask(task));
    signalTask->signal(kA);
    WaitUntil([&] { return task.done->load(); });
    signalTask->disconnect(kB);
    // Lines of earlier operations may still arrive; none of these may.
    EXPECT_EQ(0u, m_capture.Count("connect 10"));
    EXPECT_EQ(0u, m_capture.Count("signal 10"));
    EXPECT_EQ(0u, m_capture.Count("task 10 done"));
    EXPECT_EQ(0u, m_capture.Count("disconnect 11"));
}

}  // namespace
