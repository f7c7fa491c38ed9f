#include <gtest/gtest.h>

#include <memory>

#include "zolsignaltask.h"

namespace {

TEST(WrapperTaskTest, DefaultHasOwnFlagsAndNoCallable) {
    WrapperTask a;
    WrapperTask b;
    EXPECT_TRUE(a.alive->load());
    EXPECT_FALSE(a.done->load());
    EXPECT_FALSE(*a.holders);
    EXPECT_FALSE(a.task);
    EXPECT_NE(a.alive, b.alive);
    EXPECT_NE(a.done, b.done);
    EXPECT_NE(a.holders, b.holders);
}

TEST(WrapperTaskTest, CopiesShareTheFlags) {
    int calls = 0;
    WrapperTask source;
    source.task = [&calls] { ++calls; };

    WrapperTask assigned;
    assigned = source;
    WrapperTask constructed(source);
    EXPECT_EQ(source.alive, assigned.alive);
    EXPECT_EQ(source.done, constructed.done);
    EXPECT_EQ(3, source.holders.use_count());
    assigned.task();
    constructed.task();
    EXPECT_EQ(2, calls);

    assigned.done->store(true);
    EXPECT_TRUE(source.done->load());
}

TEST(WrapperTaskTest, LastHolderOfUnrunTaskClearsAlive) {
    std::shared_ptr<std::atomic<bool>> alive;
    {
        WrapperTask outer;
        alive = outer.alive;
        { WrapperTask inner(outer); }
        EXPECT_TRUE(alive->load()) << "a holder remained";
    }
    EXPECT_FALSE(alive->load());
}

TEST(WrapperTaskTest, TaskThatRanStaysAlive) {
    std::shared_ptr<std::atomic<bool>> alive;
    {
        WrapperTask task;
        alive = task.alive;
        task.done->store(true);
    }
    EXPECT_TRUE(alive->load());
}

TEST(WrapperTaskTest, AssignmentDoesNotApplyTheRuleToTheOverwrittenTask) {
    WrapperTask target;
    std::shared_ptr<std::atomic<bool>> overwritten = target.alive;
    WrapperTask source;
    target = source;  // `target` was the only holder of the old flags
    EXPECT_TRUE(overwritten->load());
    EXPECT_EQ(source.alive, target.alive);

    target = target;  // self-assignment keeps everything
    EXPECT_EQ(2, source.holders.use_count());
}

}  // namespace
