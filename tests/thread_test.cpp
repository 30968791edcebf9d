#include <gtest/gtest.h>
#include <nivur/thread.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "support/latch.h"
#include "support/log_capture.h"

namespace NIVUR {
namespace {

/// The name that the system shows for the calling thread.
std::string systemName() {
    std::string name;
    std::ifstream("/proc/thread-self/comm") >> name;
    return name;
}

/// Returns the number of threads of this process.
ptrdiff_t threadCount() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

TEST(Thread, RunsItsTaskUnderItsNameIdAndPriority) {
    const std::pair<Thread::ThreadPriority, int> rows[] = {
        {Thread::THREAD_PRIORITY_HIGH, -16},
        {Thread::THREAD_PRIORITY_LOW, 10},
        {Thread::THREAD_PRIORITY_NORMAL, 0},
        {static_cast<Thread::ThreadPriority>(9), 0}};
    for (const auto& [priority, nice] : rows) {
        LogCapture log;
        Thread thread;
        Latch checked;
        ASSERT_TRUE(thread.start(makeRunnable([&] {
                                     EXPECT_EQ(systemName(), "fifteen-bytes-a");
                                     EXPECT_EQ(thread.getThreadID(), Thread::getCurrentThreadID());
                                     EXPECT_TRUE(thread.isStarted());
                                     checked.wait();
                                 }),
                                 "fifteen-bytes-and-more", priority));
        EXPECT_EQ(thread.getName(), "fifteen-bytes-and-more");
        const int found = getpriority(PRIO_PROCESS, static_cast<id_t>(thread.getThreadID()));
        if (found != nice) {  // raising a priority needs a privilege
            EXPECT_EQ(log.take(), Lines{"4 Change the thread priority failed: "
                                        "fifteen-bytes-and-more, err=13"});
        }
        EXPECT_NE(thread.getThreadID(), Thread::INVALID_THREAD_ID);
        checked.count();
        thread.waitForStop();
        EXPECT_EQ(thread.getThreadID(), Thread::INVALID_THREAD_ID);
        EXPECT_EQ(thread.getName(), "");
        EXPECT_FALSE(thread.isStarted());
        thread.waitForStop();
    }
}

TEST(Thread, StopIsARequestThatAnIdleThreadIgnores) {
    Thread thread;
    thread.stop();
    EXPECT_FALSE(thread.isStopping());
    for (int round = 0; round < 2; ++round) {
        const auto poll = [&] {
            while (!thread.isStopping())
                std::this_thread::yield();
        };
        ASSERT_TRUE(thread.start(makeRunnable(poll), "polling"));
        thread.stop();
        thread.waitForStop();
        EXPECT_FALSE(thread.isStopping());
    }
}

TEST(Thread, RestartJoinsWhatNobodyJoined) {
    Thread thread;
    const ptrdiff_t threads = threadCount();
    for (int i = 0; i < 200; ++i) {
        while (!thread.start(makeRunnable([] {}), "short")) {
        }
        ASSERT_LE(threadCount(), threads + 2);
    }
}

TEST(Thread, KnowsItselfUntilItsThreadLocalsAreGone) {
    LogCapture log;
    Thread thread;
    bool asked = false;
    const auto askItself = [&](void*) {
        thread.waitForStop();
        EXPECT_FALSE(thread.start(makeRunnable([] {}), "self"));
        asked = true;
    };
    const auto endLate = [&] {
        static thread_local const std::shared_ptr<void> atEnd(nullptr, askItself);
    };
    ASSERT_TRUE(thread.start(makeRunnable(endLate), "ending"));
    thread.waitForStop();
    EXPECT_TRUE(asked);
    EXPECT_EQ(log.take(), Lines{"4 starting thread self failed: thread already started as "});
}

TEST(Thread, TaskDestructorMayAskItsThread) {
    Thread thread;
    bool answered = false;
    std::shared_ptr<void> asking(nullptr, [&](void*) {
        EXPECT_TRUE(thread.isStarted());
        EXPECT_EQ(thread.getName(), "asked");
        answered = true;
    });
    ASSERT_TRUE(thread.start(makeRunnable([held = std::move(asking)] {}), "asked"));
    thread.waitForStop();
    EXPECT_TRUE(answered);
}

TEST(ThreadDeathTest, NullTaskAborts) {
    Thread thread;
    EXPECT_DEATH(
        thread.start(nullptr, "null"),
        "src/private/common/thread_posix.cpp:.*NIVUR::Thread::start\\(.*`runnable' failed");
}

}  // namespace
}  // namespace NIVUR
