// The signal task and its WrapperTask flags. Every TEST is a process of its own, with the log
// level at I (CMakeLists.txt), so each starts with a fresh instance.
#include <gtest/gtest.h>

#include <android/log.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "zolsignaltask.h"
#include "zoltest.h"
#include "zoltoolsdef.h"

namespace {

constexpr unsigned long kGate = 1, kDrain = 1000;

ZOLSignalTask* S() {
    return ZOLSignalTask::instance();
}

WrapperTask Make(std::function<void()> work) {
    WrapperTask task;
    task.task = std::move(work);
    return task;
}

// Returns once every signal raised before the call has been served or dropped.
void Drain() {
    WrapperTask marker = Make([] {});
    S()->insert(kDrain, WrapperTask(marker));
    S()->signal(kDrain);
    EXPECT_TRUE(zoltest::WaitUntil([&] { return marker.done->load(); }));
}

// Keeps the loop busy in a task (holding the registry's lock) until `open`: signals raised
// meanwhile stay pending. Gone only once the task has returned.
struct Hold {
    std::atomic<bool> reached{false}, open{false};
    Hold() {
        S()->insert(kGate, Make([this] {
                        reached = true;
                        zoltest::WaitUntil([this] { return open.load(); }, 600);
                    }));
        S()->signal(kGate);
        EXPECT_TRUE(zoltest::WaitUntil([this] { return reached.load(); }));
    }
    ~Hold() {
        open = true;
        Drain();
    }
};

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

// A WrapperTask reports itself no longer alive only when its last holder lets go unrun.
TEST(WrapperTask, AliveFlagWhenTheLastHolderGoes) {
    const struct {
        const char* name;
        bool copyKept, ran, overwritten;
        bool alive;
    } rows[] = {
        {"last holder of an unrun task", false, false, false, false},
        {"a copy still held", true, false, false, true},
        {"ran", false, true, false, true},
        {"overwritten by assignment", false, false, true, true},
    };
    for (const auto& row : rows) {
        std::shared_ptr<std::atomic<bool>> alive;
        WrapperTask copy;
        {
            WrapperTask task;
            alive = task.alive;
            if (row.copyKept) {
                copy = task;
                EXPECT_EQ(task.done, copy.done) << row.name << ": copies share the flags";
            }
            if (row.ran) {
                task.done->store(true);
            }
            if (row.overwritten) {
                task = WrapperTask();
            }
        }
        EXPECT_EQ(row.alive, alive->load()) << row.name;
    }
}

TEST(SignalTask, ServesSignalsInRaiseOrderOncePerRegistration) {
    EXPECT_EQ(S(), [] {
        ZOLSignalTask* other = nullptr;
        std::thread([&] { other = ZOLSignalTask::instance(); }).join();
        return other;
    }());
    Recorder recorder;
    std::thread::id ranOn;
    WrapperTask a = Make([&] {
        ranOn = std::this_thread::get_id();
        recorder.Record(10)();
    });
    WrapperTask b = Make(recorder.Record(11));
    EXPECT_EQ(1u, S()->insert(10, WrapperTask(a)));
    EXPECT_EQ(2u, S()->insert(11, WrapperTask(b)));
    Hold hold;  // registering meanwhile would wait for it
    EXPECT_FALSE(a.done->load()) << "registering does not run it";
    EXPECT_EQ(1u, S()->insert(10));
    EXPECT_EQ(2u, S()->insert(11));
    EXPECT_EQ(2u, S()->insert(10)) << "a pending id is not queued again";
    S()->notify();
    hold.open = true;
    Drain();
    EXPECT_EQ((std::vector<unsigned long>{10, 11}), recorder.Order());
    EXPECT_NE(std::this_thread::get_id(), ranOn);
    EXPECT_TRUE(a.done->load() && a.alive->load());

    S()->signal(10);  // the registration was used up
    S()->signal(12);  // before its registration: consumed, not kept for it
    Drain();
    EXPECT_EQ(1u, S()->insert(13)) << "the queue is empty again";
    WrapperTask c = Make(recorder.Record(12));
    S()->insert(12, WrapperTask(c));
    Drain();
    EXPECT_FALSE(c.done->load());
    S()->signal(12);
    Drain();
    EXPECT_EQ((std::vector<unsigned long>{10, 11, 12}), recorder.Order());
}

// Tasks dropped unrun: replaced by a new registration (its flag left as it was), disconnected
// one by one or all at once (flag cleared unless the caller kept a copy), and the signals
// pending for them.
TEST(SignalTask, DroppedTasksNeverRun) {
    std::atomic<int> ran{0};
    auto unheld = [&](unsigned long id) {
        WrapperTask task = Make([&] { ++ran; });
        std::shared_ptr<std::atomic<bool>> alive = task.alive;
        S()->insert(id, std::move(task));
        return alive;
    };
    const auto replaced = unheld(20);
    WrapperTask replacement = Make([] {});
    EXPECT_EQ(1u, S()->insert(20, WrapperTask(replacement)));
    EXPECT_TRUE(replaced->load());
    const auto one = unheld(21), all = unheld(23);
    WrapperTask heldOne = Make([&] { ++ran; }), heldAll = Make([&] { ++ran; });
    S()->insert(22, WrapperTask(heldOne));
    S()->insert(24, WrapperTask(heldAll));
    S()->disconnect(21);
    S()->disconnect(22);
    EXPECT_FALSE(one->load());
    EXPECT_TRUE(heldOne.alive->load());
    {
        Hold hold;  // remove(id) and remove() drop pending signals before they wait for it
        for (unsigned long id : {20, 23, 24}) {
            S()->insert(id);
        }
        std::thread removeOne([] { S()->disconnect(20); });
        EXPECT_TRUE(zoltest::WaitUntil([] { return S()->insert(23) == 2; }));
        std::thread removeAll([] { S()->disconnect(); });
        EXPECT_TRUE(zoltest::WaitUntil([] { return S()->insert(25) == 1; }));
        hold.open = true;
        removeOne.join();
        removeAll.join();
    }
    EXPECT_FALSE(all->load());
    EXPECT_TRUE(heldAll.alive->load());
    EXPECT_TRUE(replaced->load());
    for (unsigned long id = 20; id <= 24; ++id) {
        S()->signal(id);
    }
    Drain();
    EXPECT_EQ(0, ran.load());
    EXPECT_FALSE(replacement.done->load() || heldOne.done->load() || heldAll.done->load());
}

TEST(SignalTask, TaskMayRaiseSignals) {
    Recorder recorder;
    WrapperTask b = Make(recorder.Record(31));
    S()->insert(31, WrapperTask(b));
    S()->insert(30, Make([&] {
                    recorder.Record(30)();
                    S()->signal(30);  // itself: already off the registry
                    S()->signal(31);
                }));
    S()->signal(30);
    ASSERT_TRUE(zoltest::WaitUntil([&] { return b.done->load(); }));
    Drain();
    EXPECT_EQ((std::vector<unsigned long>{30, 31}), recorder.Order());
}

TEST(SignalTaskDeathTest, SignallingATaskWithoutCallableAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            S()->insert(40, WrapperTask());
            S()->signal(40);
            zoltest::WaitUntil([] { return false; }, 60);
        },
        "signalled task has no callable");
}

// Callers on several threads: every task runs at most once and its flags agree with that.
TEST(SignalTask, ConcurrentCallersKeepTheFlagsConsistent) {
    constexpr int kThreads = 4, kEach = 200;
    std::vector<std::atomic<int>> runs(kThreads * kEach);
    std::vector<std::vector<WrapperTask>> kept(kThreads);
    std::vector<std::thread> callers;
    for (int t = 0; t < kThreads; ++t) {
        callers.emplace_back([&, t] {
            for (int i = 0; i < kEach; ++i) {
                const unsigned long id = static_cast<unsigned long>(t * kEach + i) + 2000;
                kept[t].push_back(Make([&runs, id] { ++runs[id - 2000]; }));
                S()->insert(id, WrapperTask(kept[t].back()));
                if (i % 3 == 0) {
                    S()->disconnect(id);
                }
                S()->signal(id);
                if (i % 5 == 0) {
                    S()->signal(id);
                }
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    Drain();
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kEach; ++i) {
            const int expected = i % 3 == 0 ? 0 : 1;
            EXPECT_EQ(expected, runs[t * kEach + i].load()) << t << " " << i;
            EXPECT_EQ(expected == 1, kept[t][i].done->load()) << t << " " << i;
            EXPECT_TRUE(kept[t][i].alive->load()) << t << " " << i;
        }
    }
}

// Every line of the signal task, exactly, at level I; none below it.
TEST(SignalTaskLog, LinesAtLevelI) {
    zoltest::LogCapture capture;
    const std::string at = "() [" + zoltest::Address(S()) + "] ";
    WrapperTask task = Make([] {});
    S()->insert(42, WrapperTask(task));
    S()->signal(42);
    ASSERT_TRUE(zoltest::WaitUntil([&] { return task.done->load(); }));
    S()->remove(77);
    S()->remove();
    {
        Hold hold;
        S()->insert(43);
        S()->insert(43);  // already pending: only the attempt is logged
    }
    Drain();
    // The loop reads the level as it logs: it is changed once the loop's last line is out and
    // it waits for the next signal.
    ASSERT_TRUE(zoltest::WaitUntil([&] {
        const std::vector<std::string> texts = capture.Texts();
        return !texts.empty() && texts.back().find("loop alive") != std::string::npos;
    }));
    ZOLToolsLogLevel = 3;
    S()->insert(44, Make([] {}));
    S()->signal(44);
    S()->disconnect(44);
    Drain();
    const struct {
        const char* line;
        size_t count;
    } rows[] = {
        {"insert#try connect 42", 1},
        {"insert#success connect 42 with 1 tasks left", 1},
        {"insert#try signal 42", 1},
        {"insert#success signal 42 with 1 signals left", 1},
        {"loop#task 42 done", 1},
        {"remove#disconnect 77", 1},
        {"remove#disconnect all", 1},
        {"insert#try signal 43", 2},
        {"insert#success signal 43 with 1 signals left", 1},
        {"insert#try connect 44", 0},
        {"insert#try signal 44", 0},
        {"remove#disconnect 44", 0},
    };
    for (const auto& row : rows) {
        std::string line = row.line;
        line.replace(line.find('#'), 1, at);
        const std::string pattern = "zolsignaltask.cpp:# " + line;
        EXPECT_EQ(row.count, capture.Matching(ANDROID_LOG_INFO, pattern)) << pattern;
    }
    EXPECT_LE(1u,
              capture.Matching(ANDROID_LOG_INFO, "zolsignaltask.cpp:# loop" + at + "loop alive"));
}

}  // namespace
