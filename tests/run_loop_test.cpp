#include <gtest/gtest.h>
#include <nivur/nivur.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "support/latch.h"
#include "support/log_capture.h"

namespace NIVUR {
namespace {

constexpr unsigned int kNever = 3600 * 1000;

/// Words in the order in which tasks wrote them. The loop makes a lock unnecessary.
struct Trace {
    void add(const std::string& word) { text += text.empty() ? word : " " + word; }
    std::string text;
};

/// Calls a function when its last copy is destroyed.
std::shared_ptr<void> atDestruction(const std::function<void()>& function) {
    return std::shared_ptr<void>(nullptr, [function](void*) { function(); });
}

const auto fail = [] { ADD_FAILURE(); };

class RunLoopTest : public testing::Test {
  protected:
    void TearDown() override { loop.stop(); }

    template <class Function>
    void post(Function function, void* object = nullptr, bool highPriority = false) {
        loop.postItem(makeRunnable(std::move(function), object), highPriority, false);
    }

    /// Posts and waits.
    template <class Function>
    void call(Function function, void* object = nullptr) {
        loop.postItem(makeRunnable(std::move(function), object), false, true);
    }

    template <class Function>
    long timer(unsigned int interval, bool repeat, Function function, void* object = nullptr) {
        return loop.addTimer(makeRunnable(std::move(function), object), interval, repeat);
    }

    /// A task that writes a word into the trace.
    auto word(const char* text) {
        return [this, text] { trace.add(text); };
    }

    /// Posts a task that blocks the loop until release(). Returns when the task has begun.
    void block() {
        _released = std::make_unique<Latch>();
        Latch begun;
        post([&begun, released = _released.get()] {
            begun.count();
            released->wait();
        });
        begun.wait();
    }
    void release() { _released->count(); }

    /// Returns when all posted tasks and all timers due before the call have run.
    void drain() {
        call([] {});
    }

    /// Returns when the loop has this many queued tasks.
    void awaitQueued(size_t tasks) {
        while (loop.queuedTasks() != tasks)
            std::this_thread::yield();
    }

    Trace trace;
    LogCapture log;
    RunLoop loop{"loop"};

  private:
    std::unique_ptr<Latch> _released;
};

TEST_F(RunLoopTest, HighPriorityTasksOvertakeQueuedOnesAndNestedWaitsAll) {
    ASSERT_TRUE(loop.start());
    block();
    for (const char* const text : {"T1", "T2", "H1", "T3", "H2"})
        post(word(text), nullptr, *text == 'H');
    release();
    call([this] {
        post(word("queued"), nullptr, true);
        call(word("nested"));  // at once
        trace.add("outer");
    });
    drain();
    EXPECT_EQ(trace.text, "H1 H2 T1 T2 T3 nested outer queued");
}

TEST_F(RunLoopTest, RefusedTasksAreLoggedAndDeleted) {
    const auto token = std::make_shared<int>();
    const auto expectRefusals = [&](const std::string& reason) {
        post([token] { ADD_FAILURE(); }, nullptr, true);
        call([token] { ADD_FAILURE(); });
        loop.postItem(nullptr, true, false);
        EXPECT_EQ(token.use_count(), 1);
        const std::string line = "5 item cannot insert to runloop loop because of " + reason;
        EXPECT_EQ(log.take(), (Lines{line, line, line}));
    };
    expectRefusals("not running");
    EXPECT_DEATH((loop.start(), loop.postItem(nullptr, false, false)),
                 "src/run_loop.cpp:.*Assertion `item' failed");
    ASSERT_TRUE(loop.start());
    call([&] {
        loop.stop();
        expectRefusals("stopping");
    });
    loop.stop();
    EXPECT_EQ(log.take(), Lines{"2 thread loop break loop!"});
    expectRefusals("not running");
    ASSERT_TRUE(loop.start());
    drain();
    EXPECT_EQ(loop.queuedTasks(), 0U);
}

TEST_F(RunLoopTest, StopAndSecondStartDropWhatIsQueuedAndReleasePosters) {
    const auto token = std::make_shared<int>();
    for (const bool byStop : {false, true}) {
        ASSERT_TRUE(loop.start());
        block();
        // Before the task of the poster, so that the poster waits for its destructor, too.
        bool dropped = false;
        const auto drop = [&] { SystemUtil::sleep(10), dropped = true; };
        post([end = atDestruction(drop)] {});
        std::thread poster([&] {
            call([token] { ++*token; });
            EXPECT_EQ(token.use_count(), 1);
        });
        awaitQueued(2);
        log.take();
        if (!byStop) {
            const auto unseen = std::make_shared<int>();
            post([unseen] {});
            EXPECT_FALSE(loop.start());
            EXPECT_EQ(unseen.use_count(), 1);
            EXPECT_EQ(log.take(),
                      Lines{"4 starting thread loop failed: thread already started as loop"});
        }
        std::thread stopper([&] { loop.stop(); });
        do {  // until the request has arrived, which shows in a refusal
            post([] {});
        } while (log.take().empty());
        release();
        loop.stop();  // does not return before the other
        EXPECT_TRUE(dropped);
        poster.join();
        stopper.join();
        EXPECT_EQ(*token, 0);
        EXPECT_EQ(loop.queuedTasks(), 0U);
    }
}

TEST_F(RunLoopTest, StopLetsASleepingLoopRunOnceMoreAndDropsTheRestInOrder) {
    int ran = 0;
    const auto token = std::make_shared<int>();
    for (int round = 0; round < 60; ++round) {  // a loop that missed a wake-up would sleep forever
        ASSERT_TRUE(loop.start());
        drain();
        Latch fired;
        timer(1, false, [&] { fired.count(); });
        fired.wait();
        if (round % 3 == 0) {
            drain(), SystemUtil::sleep(5);  // usually asleep by now
            round % 2 == 0 ? (void)timer(0, false, [&] { ++ran; }) : post([&] { ++ran; });
        } else {
            timer(kNever, true, [token] {});
        }
        loop.stop();
        EXPECT_EQ(token.use_count(), 1);
    }
    EXPECT_GE(ran, 10);  // of 20
    ASSERT_TRUE(loop.start());
    block();
    const auto wordAtEnd = [this](const char* text) {
        return [end = atDestruction(word(text))] {};
    };
    post(wordAtEnd("normal"));
    post(wordAtEnd("high"), nullptr, true);
    timer(kNever, true, wordAtEnd("timer"));
    log.take();
    std::thread stopper([&] { loop.stop(); });
    do {  // until the request has arrived, which shows in a refusal
        post([] {});
    } while (log.take().empty());
    release();
    stopper.join();
    EXPECT_EQ(trace.text, "timer high normal");
}

TEST_F(RunLoopTest, CancelWaitsForWhatAnEndingLoopDeletes) {
    ASSERT_TRUE(loop.start());
    Latch deleting;
    std::atomic<bool> deleted{false};
    const auto end = [&] { deleting.count(), SystemUtil::sleep(20), deleted = true; };
    timer(
        kNever, true, [end = atDestruction(end)] {}, &trace);
    std::thread stopper([this] { loop.stop(); });
    deleting.wait();
    loop.cancelTasksForObject(&trace);
    EXPECT_TRUE(deleted);
    stopper.join();
}

TEST_F(RunLoopTest, TaskDestructorsMayCallTheLoop) {
    const auto caller = [this] {
        return [end = atDestruction([this] {
                    post(word("posted"));
                    loop.stopTimer(timer(kNever, true, [] {}));
                    loop.resetTimer(1);
                    loop.cancelTasksForObject(&log);
                    loop.dumpLoopInfo();
                })] {};
    };
    post(caller());
    ASSERT_TRUE(loop.start());
    call(caller());
    timer(0, false, caller());
    drain();
    timer(kNever, true, caller(), &trace);
    loop.cancelTasksForObject(&trace);
    loop.stopTimer(timer(kNever, true, caller()));
    drain();
    EXPECT_EQ(trace.text, "posted posted posted posted");
    timer(kNever, true, caller());
    const auto token = std::make_shared<int>();
    timer(kNever, true, [end = atDestruction([&] { timer(0, true, [token] {}); })] {});
    loop.stop();
    EXPECT_EQ(token.use_count(), 1);
    const auto rebirth = [this] { timer(0, true, [] {}), loop.start(); };
    timer(kNever, true, [end = atDestruction(rebirth)] {});  // until the loop is destroyed
}

TEST_F(RunLoopTest, RepeatingTimerIsNeverEarlyAndMakesUpForMissedRuns) {
    std::vector<uint64_t> times;
    const uint64_t begin = SystemUtil::getCPUTime();
    timer(10, true, [&] { times.push_back(SystemUtil::getCPUTime() - begin); });
    SystemUtil::sleep(75);  // seven runs are due before the loop starts
    ASSERT_TRUE(loop.start());
    for (int pass = 0; pass < 7; ++pass)
        drain();  // at least one pass
    call([&] { EXPECT_GE(times.size(), 7U); });
    loop.stop();
    for (size_t i = 0; i < times.size(); ++i) {
        EXPECT_GE(times[i], (i + 1) * 10);
    }
}

TEST_F(RunLoopTest, TimersDueTogetherRunInOrderOfDueTimeThenOfAdding) {
    uint64_t begin = 0;
    long early = 0;
    do {  // within one millisecond, so that due times are equal
        loop.cancelTasksForObject(&trace);
        begin = SystemUtil::getCPUTime();
        timer(2, false, word("late"), &trace);
        const long first = timer(1, false, word("a"), &trace);
        timer(1, false, word("b"), &trace);
        early = timer(0, false, word("early"), &trace);
        timer(1, false, word("c"), &trace);
        loop.addTimer(nullptr, 0, false);
        loop.resetTimer(first);  // keeps its place among equals
    } while (SystemUtil::getCPUTime() != begin);
    SystemUtil::sleep(5);
    loop.resetTimer(early);  // now the last one
    ASSERT_TRUE(loop.start());
    drain();
    EXPECT_EQ(trace.text, "a b c late early");
}

TEST_F(RunLoopTest, TimersOfOneBatchMayRemoveEachOtherAndTheTaskOfThePass) {
    const auto token = std::make_shared<int>();
    for (const bool alone : {false, true}) {
        ASSERT_TRUE(loop.start());
        block();
        int x = 0;
        long first = 0, second = 0;
        first = timer(0, true, [&] {
            loop.stopTimer(first);
            loop.stopTimer(second);
            loop.cancelTasksForObject(&x);
            trace.add("first");
        });
        if (!alone) {
            second = timer(0, true, [token] { ADD_FAILURE(); });
            timer(0, true, fail, &x);
            timer(0, false, fail, &x);
            timer(0, false, word("last"));
        }
        post(fail, &x);
        SystemUtil::sleep(2);
        release();
        drain();
        drain();
        loop.stop();
    }
    EXPECT_EQ(trace.text, "first last first");
    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(RunLoopTest, DestructorsOfOneBatchMayRemoveWhatFollows) {
    int x = 0;
    for (const bool byCancel : {false, true}) {
        long second = 0;
        const auto remove = [&] {
            byCancel ? loop.cancelTasksForObject(&x) : loop.stopTimer(second);
        };
        timer(0, false, [end = atDestruction(remove)] {});
        second = timer(0, false, fail, &x);
        timer(0, false, word("third"));
        SystemUtil::sleep(2);
        ASSERT_TRUE(loop.start());
        drain();
        loop.stop();
    }
    EXPECT_EQ(trace.text, "third third");
}

TEST_F(RunLoopTest, RepeatingTimersTakeTurnsAndTasksStillRun) {
    ASSERT_TRUE(loop.start());
    block();
    // Always due, so each pass runs both once and then one task.
    timer(0, true, word("x"), &trace);
    timer(0, true, word("y"), &trace);
    post(word("T"));
    post([&] { loop.cancelTasksForObject(&trace); });
    SystemUtil::sleep(2);
    release();
    drain();
    EXPECT_EQ(trace.text, "x y T x y");
}

TEST_F(RunLoopTest, ResetTimersRestartTheirInterval) {
    ASSERT_TRUE(loop.start());
    const uint64_t begin = SystemUtil::getCPUTime();
    Latch fired;
    const long id = timer(100, false, [&] { fired.count(); });
    SystemUtil::sleep(60);
    const uint64_t resetAt = SystemUtil::getCPUTime();
    loop.resetTimer(id);
    fired.wait();
    EXPECT_GE(SystemUtil::getCPUTime(), (resetAt < begin + 100 ? resetAt : begin) + 100);
    loop.stopTimer(id);
    loop.stopTimer(12345);
}

/// Keeps the loop's lock for a while when the loop is dumped.
struct SlowDump : Runnable {
    explicit SlowDump(Latch& latch) : held(latch) {}
    void run() override {}
    std::string dump() override {
        held.count();
        SystemUtil::sleep(60);  // the time that the reset must not count
        freedAt = SystemUtil::getCPUTime();
        return {};
    }
    Latch& held;
    uint64_t freedAt = 0;
};

// Otherwise a timer could run early: while the reset waits, the loop may run the timer and advance
// it, or the id may pass to a newer timer.
TEST_F(RunLoopTest, ResetCountsFromTheMomentThatItHasTheLock) {
    ASSERT_TRUE(loop.start());
    block();
    Latch held, fired;
    uint64_t firedAt = 0;
    const long id = timer(20, false, [&] { firedAt = SystemUtil::getCPUTime(), fired.count(); });
    auto* const slow = new SlowDump(held);
    loop.postItem(slow, false, false);
    std::thread dumper([&] { loop.dumpLoopInfo(); });
    held.wait();
    loop.resetTimer(id);
    dumper.join();
    const uint64_t freedAt = slow->freedAt;
    release();
    fired.wait();
    EXPECT_GE(firedAt, freedAt + 20);
}

TEST_F(RunLoopTest, CancelRemovesEverythingOfOneObjectAndReleasesPostersAtOnce) {
    int x = 0, y = 0;
    ASSERT_TRUE(loop.start());
    block();
    const auto token = std::make_shared<int>();
    for (const bool high : {false, true, false})
        post([token] { fail(); }, &x, high);
    loop.addTimer(makeRunnable([token] { fail(); }, &x), 0, true);
    post(word("y"), &y);
    post(word("nobody's"));
    std::thread poster([&] { call([token] { ADD_FAILURE(); }, &x); });
    awaitQueued(6);
    std::thread canceller([&] { loop.cancelTasksForObject(&x); });
    poster.join();  // while the canceller waits for the running task
    awaitQueued(2);
    const auto stopTimer = [this] { loop.stopTimer(1); };
    post([end = atDestruction(stopTimer)] {}, &x);  // dropped, unless it runs before
    loop.cancelTasksForObject(nullptr);
    release();
    canceller.join();
    EXPECT_EQ(token.use_count(), 1);
    call(
        [&, held = token] {  // running, so it is not dropped
            loop.cancelTasksForObject(&x);
            EXPECT_EQ(token.use_count(), 2);
        },
        &x);
    drain();
    EXPECT_EQ(trace.text, "y nobody's");
}

// A caller that waits at the gate of a loop that is never idle passes after one task.
TEST_F(RunLoopTest, BusyLoopLetsStopAndCancelThrough) {
    ASSERT_TRUE(loop.start(Thread::THREAD_PRIORITY_HIGH));
    std::atomic<int> runs{0};
    timer(0, true, [&] { ++runs, SystemUtil::sleep(2); });
    for (int i = 0; i < 50; ++i) {
        for (const int before = runs; runs == before;)
            std::this_thread::yield();
        loop.stopTimer(1);
        loop.cancelTasksForObject(&trace);
    }
    EXPECT_LT(runs, 3000);  // about three per call; without turns a caller would wait forever
    loop.stop();
}

struct NamedTask : Runnable {
    explicit NamedTask(std::string name, std::function<void()> function = nullptr)
        : _name(std::move(name)), _function(std::move(function)) {}
    void run() override { _function ? _function() : (void)0; }
    std::string dump() override { return _name; }
    std::string _name;
    std::function<void()> _function;
};

TEST_F(RunLoopTest, DumpDescribesTheLoopWithoutWaitingForIt) {
    RunLoop fresh("100%s");
    fresh.dumpLoopInfo();
    ASSERT_TRUE(loop.start());
    Latch hung, end, dumped;
    const auto hang = [&] { hung.count(), end.wait(); };
    std::thread poster([&] { loop.postItem(new NamedTask("hanging", hang), false, true); });
    hung.wait();
    loop.postItem(new NamedTask("n1"), false, false);
    auto* const queued = new NamedTask("n0");
    loop.postItem(queued, false, false);
    *queued = NamedTask("n2");  // it stays queued
    loop.postItem(new NamedTask("h1"), true, false);
    loop.addTimer(new NamedTask("pending"), kNever, true);
    loop.dumpLoopInfo();
    end.count();
    poster.join();
    drain();
    const auto dump = [&] {
        for (const char* const name : {"c1", "n3", "c2"})
            loop.postItem(name[0] == 'c' ? makeRunnable([] {}, &end) : new NamedTask(name), false,
                          false);
        loop.cancelTasksForObject(&end);
        loop.dumpLoopInfo(), dumped.count();
    };
    loop.addTimer(new NamedTask("t1", dump), 0, false);
    dumped.wait();
    EXPECT_EQ(
        log.take(),
        (Lines{"4 dump thread info, _name: 100%s, _items.size: 0, _highPriorityItems.size: 0, "
               "_sortedTimers.size: 0, _runningTimers.size: 0 , _hasRunningItem: 0",
               "4 dump thread info, _name: loop, _items.size: 2, _highPriorityItems.size: 1, "
               "_sortedTimers.size: 1, _runningTimers.size: 0 , _hasRunningItem: 1"
               "\r _runningItem : \r\thanging\r _items : \r\tn1\r\tn2\r\t"
               "\r _highPriorityItems : \r\th1\r\t",
               "4 dump thread info, _name: loop, _items.size: 1, _highPriorityItems.size: 0, "
               "_sortedTimers.size: 1, _runningTimers.size: 1 , _hasRunningItem: 0"
               "\r _runningTimers : \r\tt1\r\t\r _items : \r\tn3\r\t"}));
}

}  // namespace
}  // namespace NIVUR
