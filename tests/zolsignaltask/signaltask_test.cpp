// The signal task and its WrapperTask flags. Every TEST is a process of its own, with the log
// level at I (CMakeLists.txt), so each starts with a fresh instance.
#include <gtest/gtest.h>

#include <android/log.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "zolsignaltask.h"
#include "zoltest.h"

namespace {

constexpr unsigned long kGate = 1, kDrain = 1000;
std::string g_ran;  // what the tasks ran, in order; written on the loop thread only

ZOLSignalTask* S() {
    return ZOLSignalTask::instance();
}

WrapperTask Make(std::function<void()> work) {
    WrapperTask task;
    task.task = std::move(work);
    return task;
}

WrapperTask Mark(char c) {
    return Make([c] { g_ran += c; });
}

// Registers `task` keeping no copy of it; its alive flag.
std::shared_ptr<std::atomic<bool>> Unheld(unsigned long id, WrapperTask task) {
    std::shared_ptr<std::atomic<bool>> alive = task.alive;
    S()->insert(id, std::move(task));
    return alive;
}

// Returns once every signal raised before the call has been served or dropped.
void Drain() {
    WrapperTask marker = Make([] {});
    S()->insert(kDrain, WrapperTask(marker));
    S()->signal(kDrain);
    EXPECT_TRUE(zoltest::WaitUntil([&] { return marker.done->load(); }));
}

// Keeps the loop in a task, holding the registry's lock, until `open`: signals raised meanwhile
// stay pending, and registering or removing waits. Gone only once the task has returned.
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

// Signals are served in raise order, once per registration; every step is logged at level I
// with the instance's address.
TEST(SignalTask, ServesSignalsInRaiseOrderOncePerRegistration) {
    zoltest::LogCapture capture;
    WrapperTask a = Mark('a');
    const auto bAlive = Unheld(11, Mark('b'));
    EXPECT_EQ(2u, S()->insert(10, WrapperTask(a)));
    {
        Hold hold;
        EXPECT_FALSE(a.done->load()) << "registering does not run it";
        EXPECT_EQ(1u, S()->insert(10));
        EXPECT_EQ(2u, S()->insert(11));
        EXPECT_EQ(2u, S()->insert(10)) << "a pending id is not queued again";
    }
    EXPECT_EQ("ab", g_ran);
    EXPECT_TRUE(a.done->load() && a.alive->load());
    EXPECT_TRUE(bAlive->load()) << "a task that ran stays alive when its last holder goes";
    S()->signal(10);  // its registration was used up
    S()->signal(12);  // before its registration: consumed, not kept for it
    Drain();
    EXPECT_EQ(1u, S()->insert(13)) << "the queue is empty again";
    S()->insert(12, Make([] {
                    g_ran += 'c';
                    S()->signal(12);  // a task may raise signals, its own id included
                    S()->signal(14);
                }));
    S()->insert(14, Mark('d'));
    Drain();
    EXPECT_EQ("ab", g_ran);
    S()->signal(12);
    Drain();
    Drain();
    EXPECT_EQ("abcd", g_ran);
    WrapperTask e = Mark('e');
    S()->insert(15, WrapperTask(e));
    S()->insert(15);  // queued without waking the loop: notify wakes it
    S()->notify();
    EXPECT_TRUE(zoltest::WaitUntil([&] { return e.done->load(); }));
    S()->remove(77);
    S()->remove();
    const std::string at = "() [" + zoltest::Address(S()) + "] ";
    const struct {
        const char* line;
        size_t count;
    } rows[] = {
        {"insert#try connect 10", 1},
        {"insert#success connect 10 with 2 tasks left", 1},
        {"insert#try signal 10", 3},  // one of them while 10 was pending: only the attempt
        {"insert#success signal 10 with 1 signals left", 2},
        {"insert#success signal 11 with 2 signals left", 1},
        {"loop#task 10 done", 1},
        {"remove#disconnect 77", 1},
        {"remove#disconnect all", 1},
    };
    for (const auto& row : rows) {
        std::string line = row.line;
        const std::string pattern = "zolsignaltask.cpp:# " + line.replace(line.find('#'), 1, at);
        EXPECT_EQ(row.count, capture.Matching(ANDROID_LOG_INFO, pattern)) << pattern;
    }
    EXPECT_LE(1u,
              capture.Matching(ANDROID_LOG_INFO, "zolsignaltask.cpp:# loop" + at + "loop alive"));
}

// Tasks dropped unrun: replaced by a new registration (its flag left as it was), disconnected
// one by one or all at once (flag cleared unless the caller kept a copy), and the signals
// pending for them.
TEST(SignalTask, DroppedTasksNeverRun) {
    const auto replaced = Unheld(20, Mark('x')), one = Unheld(21, Mark('x')),
               all = Unheld(23, Mark('x'));
    WrapperTask replacement = Mark('r'), heldOne = Mark('x'), heldAll = Mark('x');
    EXPECT_EQ(3u, S()->insert(20, WrapperTask(replacement)));
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
    EXPECT_TRUE(heldAll.alive->load() && replaced->load());
    for (unsigned long id = 20; id <= 24; ++id) {
        S()->signal(id);
    }
    Drain();
    EXPECT_EQ("", g_ran);
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

}  // namespace
