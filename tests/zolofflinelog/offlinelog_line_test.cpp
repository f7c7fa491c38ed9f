// The ids a line carries, which the log keeps once read: right on every thread and again in a
// forked child.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "zolofflinelog/zolofflinelogline.h"

namespace {

using zol::offlinelog::ProcessId;
using zol::offlinelog::ThreadId;

TEST(OfflineLogIds, EachThreadGetsItsOwnId) {
    EXPECT_EQ(getpid(), ProcessId());
    EXPECT_EQ(gettid(), ThreadId());
    pid_t other = 0;
    pid_t otherReal = 0;
    std::thread([&] {
        other = ThreadId();
        otherReal = gettid();
    }).join();
    EXPECT_EQ(otherReal, other);
    EXPECT_NE(ThreadId(), other);
    EXPECT_EQ(gettid(), ThreadId());
}

TEST(OfflineLogIds, ForkedChildReadsItsOwnIds) {
    ASSERT_EQ(getpid(), ProcessId());
    ASSERT_EQ(gettid(), ThreadId());
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        const bool ok = ProcessId() == getpid() && ThreadId() == gettid();
        _exit(ok ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status)) << "the child saw its parent's ids";
}

}  // namespace
