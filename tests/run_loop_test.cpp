#include <gtest/gtest.h>
#include <nivur/run_loop.h>
#include <nivur/system_util.h>
#include <sys/resource.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "support/latch.h"
#include "support/log_capture.h"

namespace NIVUR {
namespace {

constexpr unsigned int kNever = 3600 * 1000;
constexpr uint64_t kSlowMachineMs = 2000;

/// Words in the order in which tasks wrote them.
class Trace {
  public:
    void add(const std::string& word) {
        const std::lock_guard<std::mutex> lock(_mutex);
        _text += _text.empty() ? word : " " + word;
    }
    std::string text() {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _text;
    }
    /// A task that writes `word` when it runs.
    Runnable* task(const std::string& word, void* object = nullptr) {
        return makeRunnable([this, word] { add(word); }, object);
    }

  private:
    std::mutex _mutex;
    std::string _text;
};

/// Calls a function when the last copy goes.
std::shared_ptr<void> atDestruction(std::function<void()> function) {
    return std::shared_ptr<void>(nullptr, [function](void*) { function(); });
}

class RunLoopTest : public testing::Test {
  protected:
    void TearDown() override { loop.stop(); }

    /// Posts a task during which the loop hangs until release(); returns when it has begun.
    void block(void* object = nullptr) {
        _released = std::make_unique<Latch>();
        Latch begun;
        loop.postItem(makeRunnable(
                          [&begun, released = _released.get()] {
                              begun.count();
                              released->wait();
                          },
                          object),
                      true, false);
        begun.wait();
    }
    void release() { _released->count(); }

    /// Returns when everything posted and all that was due so far has run.
    void drain() {
        loop.postItem(makeRunnable([] {}), false, true);
    }

    /// Returns when the loop has as many normal tasks queued.
    void awaitQueued(int items) {
        const std::string size = "_items.size: " + std::to_string(items) + ",";
        do {
            std::this_thread::yield();
            log.take();
            loop.dumpLoopInfo();
        } while (log.take().back().find(size) == std::string::npos);
    }

    Trace trace;
    LogCapture log;
    RunLoop loop{"loop"};

  private:
    std::unique_ptr<Latch> _released;
};

TEST_F(RunLoopTest, HighPriorityTasksOvertakeQueuedNormalOnes) {
    ASSERT_TRUE(loop.start());
    block();
    for (const char* const word : {"T1", "T2", "T3"}) {
        loop.postItem(trace.task(word), false, false);
    }
    loop.postItem(trace.task("H1"), true, false);
    loop.postItem(trace.task("H2"), true, false);
    release();
    drain();
    EXPECT_EQ(trace.text(), "H1 H2 T1 T2 T3");
}

TEST_F(RunLoopTest, SynchronousPostReturnsWhenItsTaskHasRunAndIsGone) {
    ASSERT_TRUE(loop.start());
    const auto token = std::make_shared<int>(0);
    for (int i = 1; i <= 1000; ++i) {
        loop.postItem(makeRunnable([token] { ++*token; }), i % 2 == 0, true);
        ASSERT_EQ(*token, i);
        ASSERT_EQ(token.use_count(), 1);
    }
    // From the loop itself the task runs at once, nested, while a plain post is queued.
    loop.postItem(makeRunnable([this] {
                      loop.postItem(trace.task("queued"), true, false);
                      loop.postItem(trace.task("nested"), false, true);
                      trace.add("outer");
                  }),
                  false, true);
    drain();
    EXPECT_EQ(trace.text(), "nested outer queued");
}

TEST_F(RunLoopTest, RefusedTasksAreLoggedAndDeleted) {
    const auto token = std::make_shared<int>();
    const auto postAll = [&] {
        loop.postItem(makeRunnable([token] { ADD_FAILURE(); }), false, false);
        loop.postItem(makeRunnable([token] { ADD_FAILURE(); }), true, true);
        EXPECT_EQ(token.use_count(), 1);
    };
    const std::string notRunning = "5 item cannot insert to runloop loop because of not running";
    const std::string stopping = "5 item cannot insert to runloop loop because of stopping";
    postAll();
    EXPECT_EQ(log.take(), (Lines{notRunning, notRunning}));
    ASSERT_TRUE(loop.start());
    loop.postItem(makeRunnable([&] {
                      loop.stop();
                      postAll();
                      EXPECT_EQ(log.take(), (Lines{stopping, stopping}));
                  }),
                  false, true);
    loop.stop();
    EXPECT_EQ(log.take(), Lines{"2 thread loop break loop!"});
    postAll();
    EXPECT_EQ(log.take(), (Lines{notRunning, notRunning}));
    ASSERT_TRUE(loop.start());
    drain();
}

TEST_F(RunLoopTest, StopAndSecondStartDropWhatIsQueuedAndReleasePosters) {
    const auto token = std::make_shared<int>();
    for (const bool byStop : {false, true}) {
        ASSERT_TRUE(loop.start());
        block();
        std::thread poster(
            [&] { loop.postItem(makeRunnable([token] { ++*token; }), false, true); });
        awaitQueued(1);
        loop.postItem(makeRunnable([token] { ++*token; }), true, false);
        if (byStop) {
            std::vector<std::thread> stoppers;
            for (int i = 0; i < 3; ++i) {
                stoppers.emplace_back([&] { loop.stop(); });
            }
            do {  // until the request has arrived, which shows in a refusal
                loop.postItem(makeRunnable([] {}), false, false);
            } while (log.take().empty());
            release();
            for (std::thread& stopper : stoppers) {
                stopper.join();
            }
            poster.join();
        } else {
            log.take();
            EXPECT_FALSE(loop.start());
            EXPECT_EQ(log.take(),
                      Lines{"4 starting thread loop failed: thread already started as loop"});
            poster.join();
            release();
            drain();
            loop.stop();
        }
        EXPECT_EQ(*token, 0);
        EXPECT_EQ(token.use_count(), 1);
    }
}

TEST(RunLoop, EveryLifeEndsWithoutLeakOrHang) {
    { RunLoop never("never started"); }
    {
        RunLoop loop("stopped before");
        loop.stop();
        loop.stop();
    }
    {
        RunLoop loop("timer only");
        loop.addTimer(makeRunnable([] {}), 1, true);
    }
    {
        RunLoop loop("stopped by itself");
        for (int i = 0; i < 20; ++i) {
            while (!loop.start()) {
            }
            loop.postItem(makeRunnable([&] { loop.stop(); }), false, true);
        }
    }
    {
        RunLoop loop("destroyed with work queued");
        ASSERT_TRUE(loop.start());
        const auto token = std::make_shared<int>();
        for (int i = 0; i < 1000; ++i) {
            loop.postItem(makeRunnable([token] {}), i % 2 == 0, false);
        }
    }
}

TEST_F(RunLoopTest, TaskDestructorsMayCallTheLoop) {
    const auto callEverything = [this] {
        loop.postItem(trace.task("posted"), false, false);
        loop.stopTimer(loop.addTimer(makeRunnable([] {}), kNever, true));
        loop.resetTimer(1);
        loop.cancelTasksForObject(&log);
        loop.dumpLoopInfo();
    };
    int object = 0;
    loop.postItem(makeRunnable([end = atDestruction(callEverything)] {}), false, false);
    ASSERT_TRUE(loop.start());
    block();
    loop.postItem(makeRunnable([end = atDestruction([&] { loop.dumpLoopInfo(); })] {}), false,
                  false);
    EXPECT_FALSE(loop.start());
    release();
    loop.postItem(makeRunnable([end = atDestruction(callEverything)] {}), false, true);
    loop.addTimer(makeRunnable([end = atDestruction(callEverything)] {}), 0, false);
    drain();
    block();
    loop.postItem(makeRunnable([end = atDestruction(callEverything)] {}, &object), false, false);
    loop.addTimer(makeRunnable([end = atDestruction(callEverything)] {}, &object), kNever, true);
    std::thread canceller([&] { loop.cancelTasksForObject(&object); });
    while (trace.text().empty()) {
        std::this_thread::yield();
    }
    release();
    canceller.join();
    loop.stopTimer(
        loop.addTimer(makeRunnable([end = atDestruction(callEverything)] {}), kNever, true));
    drain();
    EXPECT_EQ(trace.text(), "posted posted posted posted posted");
    block();
    loop.postItem(makeRunnable([end = atDestruction(callEverything)] {}), false, false);
    loop.addTimer(makeRunnable([end = atDestruction(callEverything)] {}), kNever, true);
    std::thread stopper([&] { loop.stop(); });
    release();
    stopper.join();
    loop.addTimer(makeRunnable([end = atDestruction(callEverything)] {}), kNever, true);
}

TEST_F(RunLoopTest, RepeatingTimerIsNeverEarlyAndMakesUpForMissedRuns) {
    std::vector<uint64_t> times;
    const uint64_t begin = SystemUtil::getCPUTime();
    loop.addTimer(makeRunnable([&] { times.push_back(SystemUtil::getCPUTime() - begin); }), 10,
                  true);
    SystemUtil::sleep(75);  // seven runs are due before the loop starts
    ASSERT_TRUE(loop.start());
    for (int pass = 0; pass < 7; ++pass) {
        drain();  // one pass, or more
    }
    loop.postItem(makeRunnable([&] { ASSERT_GE(times.size(), 7U); }), false, true);
    loop.stop();
    for (size_t i = 0; i < times.size(); ++i) {
        EXPECT_GE(times[i], (i + 1) * 10);
    }
}

TEST_F(RunLoopTest, StopDropsTimersAndEveryChangeWakesTheLoop) {
    const auto token = std::make_shared<int>();
    const uint64_t begin = SystemUtil::getCPUTime();
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(loop.start());
        drain();
        Latch ran;
        loop.addTimer(makeRunnable([&] { ran.count(); }), 1, false);
        ran.wait();
        loop.addTimer(makeRunnable([token] {}), kNever, true);
        loop.stop();
        EXPECT_EQ(token.use_count(), 1);
    }
    // A loop that slept its 100 ms out before it saw any of these would need 2 s and more.
    EXPECT_LT(SystemUtil::getCPUTime() - begin, 1500U);
}

TEST_F(RunLoopTest, TimersOfOneBatchMayRemoveEachOther) {
    ASSERT_TRUE(loop.start());
    block();
    int x = 0;
    long first = 0;
    long second = 0;
    first = loop.addTimer(makeRunnable([&] {
                              loop.stopTimer(first);
                              loop.stopTimer(second);
                              loop.cancelTasksForObject(&x);
                              trace.add("first");
                          }),
                          0, true);
    second = loop.addTimer(makeRunnable([] { ADD_FAILURE(); }), 0, true);
    loop.addTimer(makeRunnable([] { ADD_FAILURE(); }, &x), 0, true);
    loop.addTimer(makeRunnable([] { ADD_FAILURE(); }, &x), 0, false);
    loop.addTimer(trace.task("last"), 0, false);
    SystemUtil::sleep(2);
    release();
    drain();
    drain();
    EXPECT_EQ(trace.text(), "first last");
}

TEST_F(RunLoopTest, TimersDueTogetherRunInOrderOfDueTimeThenOfAdding) {
    // All of these are due once the loop starts; equal due times are forced by adding within 1 ms.
    std::string added;
    uint64_t begin = 0;
    do {
        loop.cancelTasksForObject(&trace);
        begin = SystemUtil::getCPUTime();
        loop.addTimer(trace.task("late", &trace), 2, false);
        const long first = loop.addTimer(trace.task("a", &trace), 1, false);
        loop.addTimer(trace.task("b", &trace), 1, false);
        loop.addTimer(trace.task("early", &trace), 0, false);
        loop.addTimer(trace.task("c", &trace), 1, false);
        loop.addTimer(nullptr, 0, false);
        loop.resetTimer(first);  // keeps its place among equals
    } while (SystemUtil::getCPUTime() != begin);
    SystemUtil::sleep(5);
    ASSERT_TRUE(loop.start());
    drain();
    EXPECT_EQ(trace.text(), "early a b c late");
}

TEST_F(RunLoopTest, RepeatingTimersTakeTurnsAndTasksStillRun) {
    ASSERT_TRUE(loop.start());
    block();
    // Always due, so each pass runs both once and then one task.
    loop.addTimer(trace.task("x", &trace), 0, true);
    loop.addTimer(trace.task("y", &trace), 0, true);
    SystemUtil::sleep(2);
    loop.postItem(trace.task("T"), false, false);
    loop.postItem(makeRunnable([&] { loop.cancelTasksForObject(&trace); }), false, false);
    release();
    drain();
    EXPECT_EQ(trace.text(), "x y T x y");
}

TEST_F(RunLoopTest, TimersStopAndRestartTheirInterval) {
    ASSERT_TRUE(loop.start());
    long self = 0;
    loop.postItem(makeRunnable([&] {
                      // Stopped from its own task: it finishes the run and has no other.
                      self = loop.addTimer(makeRunnable([&] {
                                               loop.stopTimer(self);
                                               trace.add("self");
                                           }),
                                           1, true);
                  }),
                  false, true);
    const uint64_t begin = SystemUtil::getCPUTime();
    Latch reset;
    const long id = loop.addTimer(makeRunnable([&] { reset.count(); }), 100, false);
    SystemUtil::sleep(60);
    const uint64_t resetAt = SystemUtil::getCPUTime();
    loop.resetTimer(id);
    reset.wait();
    EXPECT_GE(SystemUtil::getCPUTime(), (resetAt < begin + 100 ? resetAt : begin) + 100);
    loop.stopTimer(id);
    loop.stopTimer(12345);
    drain();
    EXPECT_EQ(trace.text(), "self");

    // From another thread it waits for the run under way, whose task is gone afterwards.
    Latch begun;
    const auto token = std::make_shared<std::atomic<bool>>(false);
    const long slow = loop.addTimer(makeRunnable([&begun, token] {
                                        begun.count();
                                        SystemUtil::sleep(30);
                                        *token = true;
                                    }),
                                    0, true);
    begun.wait();
    loop.stopTimer(slow);
    EXPECT_TRUE(*token);
    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(RunLoopTest, CancelRemovesEverythingOfOneObject) {
    int x = 0;
    int y = 0;
    ASSERT_TRUE(loop.start());
    block();
    const auto token = std::make_shared<int>();
    for (int i = 0; i < 3; ++i) {
        loop.postItem(makeRunnable([token] { ADD_FAILURE(); }, &x), i == 1, false);
    }
    loop.addTimer(makeRunnable([token] { ADD_FAILURE(); }, &x), 0, true);
    loop.postItem(trace.task("y", &y), false, false);
    loop.postItem(trace.task("nobody's"), false, false);
    std::thread poster(
        [&] { loop.postItem(makeRunnable([token] { ADD_FAILURE(); }, &x), false, true); });
    awaitQueued(5);
    std::thread canceller([&] { loop.cancelTasksForObject(&x); });
    poster.join();  // released although the canceller waits for the running task
    loop.cancelTasksForObject(nullptr);
    release();
    canceller.join();
    EXPECT_EQ(token.use_count(), 1);
    drain();
    EXPECT_EQ(trace.text(), "y nobody's");
}

// An earlier timer of a pass cancels a later one and the task that the same pass has taken already;
// the timer that is alone in its pass does so after it removed itself.
TEST_F(RunLoopTest, CancelFromATimerDropsWhatThePassHasTaken) {
    for (const bool alone : {false, true}) {
        int x = 0;
        ASSERT_TRUE(loop.start());
        block();
        long self = 0;
        self = loop.addTimer(makeRunnable([&] {
                                 if (alone) {
                                     loop.stopTimer(self);
                                 }
                                 loop.cancelTasksForObject(&x);
                                 trace.add("cancelled");
                             }),
                             0, false);
        if (!alone) {
            loop.addTimer(makeRunnable([] { ADD_FAILURE(); }, &x), 0, true);
        }
        loop.postItem(makeRunnable([] { ADD_FAILURE(); }, &x), true, false);
        release();
        drain();
        loop.stop();
    }
    EXPECT_EQ(trace.text(), "cancelled cancelled");
}

TEST_F(RunLoopTest, CancelOfTheRunningTaskLetsItFinishAndItsPosterWaitForThat) {
    int x = 0;
    ASSERT_TRUE(loop.start());
    std::atomic<bool> finished{false};
    loop.postItem(makeRunnable(
                      [&] {
                          loop.cancelTasksForObject(&x);
                          loop.postItem(trace.task("later", &x), false, false);
                          loop.cancelTasksForObject(&x);
                          SystemUtil::sleep(10);
                          finished = true;
                      },
                      &x),
                  false, true);
    EXPECT_TRUE(finished);
    Latch begun;
    std::atomic<int> state{0};
    std::thread poster([&] {
        loop.postItem(makeRunnable(
                          [&] {
                              begun.count();
                              SystemUtil::sleep(20);
                              state = 1;
                          },
                          &x),
                      false, true);
        EXPECT_EQ(state, 1);
    });
    begun.wait();
    loop.cancelTasksForObject(&x);
    EXPECT_EQ(state, 1);
    poster.join();
    drain();
    EXPECT_EQ(trace.text(), "");
}

TEST_F(RunLoopTest, CancelAlsoTakesWhatTheRunningTaskAddsMeanwhile) {
    struct Chain {
        explicit Chain(RunLoop& runLoop) : loop(runLoop) {}
        void step() {
            EXPECT_FALSE(cancelled);
            begun.count();
            SystemUtil::sleep(10);
            loop.postItem(makeRunnable([this] { step(); }, this), false, false);
            loop.addTimer(makeRunnable([this] { step(); }, this), 0, true);
        }
        RunLoop& loop;
        Latch begun;
        std::atomic<bool> cancelled{false};
    } chain(loop);
    ASSERT_TRUE(loop.start());
    loop.postItem(makeRunnable([&] { chain.step(); }, &chain), false, false);
    chain.begun.wait();
    loop.cancelTasksForObject(&chain);
    chain.cancelled = true;
    drain();
    drain();
}

// The loop shuts its gate again at once, and whoever waits for it has to get a turn.
TEST_F(RunLoopTest, BusyLoopLetsStopAndCancelThrough) {
    ASSERT_TRUE(loop.start(Thread::THREAD_PRIORITY_HIGH));
    std::atomic<int> runs{0};
    loop.addTimer(makeRunnable([&] {
                      ++runs;
                      SystemUtil::sleep(2);
                  }),
                  0, true);
    for (int i = 0; i < 20; ++i) {
        const int before = runs;
        loop.stopTimer(1);
        loop.cancelTasksForObject(&trace);
        EXPECT_LT(runs - before, 20);
    }
    loop.stop();
}

TEST_F(RunLoopTest, DroppedTaskIsGoneBeforeItsPosterReturns) {
    ASSERT_TRUE(loop.start());
    block();
    loop.postItem(makeRunnable([end = atDestruction([] { SystemUtil::sleep(20); })] {}), false,
                  false);
    bool gone = false;
    std::thread poster([&] {
        loop.postItem(makeRunnable([end = atDestruction([&] { gone = true; })] {}), false, true);
        EXPECT_TRUE(gone);
    });
    awaitQueued(2);
    EXPECT_FALSE(loop.start());
    poster.join();
    release();
}

TEST(RunLoop, EndsWithWhatItsTasksDestructorsStart) {
    RunLoop loop("reborn");
    loop.addTimer(makeRunnable([&loop, end = atDestruction([&loop] {
                                           loop.addTimer(makeRunnable([] {}), 0, true);
                                           loop.start();
                                       })] {}),
                  kNever, true);
}

struct NamedTask : Runnable {
    explicit NamedTask(
        std::string name, std::function<void()> function = [] {})
        : _name(std::move(name)), _function(std::move(function)) {}
    void run() override { _function(); }
    std::string dump() override { return _name; }
    std::string _name;
    std::function<void()> _function;
};

TEST_F(RunLoopTest, DumpDescribesTheLoopWithoutWaitingForIt) {
    RunLoop fresh("100%s");
    fresh.dumpLoopInfo();
    EXPECT_EQ(log.take(),
              Lines{"4 dump thread info, _name: 100%s, _items.size: 0, _highPriorityItems.size: 0, "
                    "_sortedTimers.size: 0, _runningTimers.size: 0 , _hasRunningItem: 0"});
    ASSERT_TRUE(loop.start());
    Latch hung;
    Latch end;
    const auto hang = [&] {
        hung.count();
        end.wait();
    };
    loop.postItem(new NamedTask("hanging", hang), false, false);
    hung.wait();
    loop.postItem(new NamedTask("n1"), false, false);
    loop.postItem(new NamedTask("n2"), false, false);
    loop.postItem(new NamedTask("h1"), true, false);
    loop.addTimer(new NamedTask("pending"), kNever, true);
    loop.dumpLoopInfo();
    EXPECT_EQ(log.take(),
              Lines{"4 dump thread info, _name: loop, _items.size: 2, _highPriorityItems.size: 1, "
                    "_sortedTimers.size: 1, _runningTimers.size: 0 , _hasRunningItem: 1"
                    "\r _runningItem : \r\thanging\r _items : \r\tn1\r\tn2\r\t"
                    "\r _highPriorityItems : \r\th1\r\t"});
    end.count();
    drain();
    Latch dumped;
    loop.addTimer(new NamedTask("t1",
                                [&] {
                                    loop.dumpLoopInfo();
                                    dumped.count();
                                }),
                  0, false);
    dumped.wait();
    EXPECT_EQ(log.take(),
              Lines{"4 dump thread info, _name: loop, _items.size: 0, _highPriorityItems.size: 0, "
                    "_sortedTimers.size: 1, _runningTimers.size: 1 , _hasRunningItem: 0"
                    "\r _runningTimers : \r\tt1\r\t"});
}

TEST_F(RunLoopTest, IdleLoopWakesAboutTenTimesASecond) {
    ASSERT_TRUE(loop.start());
    const auto switches = [this] {
        rusage usage{};
        loop.postItem(makeRunnable([&] { getrusage(RUSAGE_THREAD, &usage); }), false, true);
        return usage.ru_nvcsw;
    };
    const long before = switches();
    SystemUtil::sleep(1050);  // the time over which the wakes are counted
    const long wakes = switches() - before;
    EXPECT_GE(wakes, 7);
    EXPECT_LE(wakes, 14);
}

TEST(RunLoopDeathTest, NullTaskAborts) {
    EXPECT_DEATH(
        {
            RunLoop loop("loop");
            loop.start();
            loop.postItem(nullptr, false, false);
        },
        "src/run_loop.cpp:.*Assertion `item' failed");
}

}  // namespace
}  // namespace NIVUR
