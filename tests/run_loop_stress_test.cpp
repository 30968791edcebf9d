#include <gtest/gtest.h>
#include <nivur/log.h>
#include <nivur/run_loop.h>
#include <nivur/system_util.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <thread>

namespace NIVUR {
namespace {

/// Ends the process with the loop's dump when a test takes longer than any machine should.
class Watchdog {
  public:
    explicit Watchdog(RunLoop& loop) : _thread([this, &loop] { watch(loop); }) {}
    ~Watchdog() {
        _over.notify();
        _thread.join();
    }

  private:
    void watch(RunLoop& loop) {
        if (_over.wait(60000) != 0) {
            Log::setCB(
                [](int, const char* fmt, va_list args) { std::vfprintf(stderr, fmt, args); });
            loop.dumpLoopInfo();
            std::abort();
        }
    }

    Semaphore _over;
    std::thread _thread;
};

void atOnce(int threads, const std::function<void(int)>& body) {
    std::vector<std::thread> running;
    for (int i = 0; i < threads; ++i) {
        running.emplace_back([&body, i] { body(i); });
    }
    for (std::thread& thread : running) {
        thread.join();
    }
}

/// A task that counts its runs and its end, and fails the test when either happens twice.
class CountedTask : public Runnable {
  public:
    struct Counts {
        std::atomic<int> made{0}, run{0}, deleted{0};
    };
    explicit CountedTask(Counts& counts) : _counts(counts) { ++_counts.made; }
    ~CountedTask() override { ++_counts.deleted; }
    void run() override {
        EXPECT_FALSE(_run.exchange(true));
        ++_counts.run;
    }
    std::string dump() override { return "counted"; }

  private:
    Counts& _counts;
    std::atomic<bool> _run{false};
};

// Every round joins its posters before the loop starts again, which would release one that was
// lost.
TEST(RunLoopStress, PostersRacingWithStopAreAlwaysReleased) {
    CountedTask::Counts counts;
    {
        RunLoop loop("racing");
        const Watchdog watchdog(loop);
        const uint64_t end = SystemUtil::getCPUTime() + 1500;
        while (SystemUtil::getCPUTime() < end) {
            loop.start();
            std::atomic<bool> stopped{false};
            atOnce(5, [&](int thread) {
                if (thread == 4) {
                    loop.stop();
                    stopped = true;
                } else if (thread == 3) {
                    loop.stop();
                }
                for (int i = 0; !stopped; ++i) {
                    loop.postItem(new CountedTask(counts), i % 3 == 0, thread != 0 || i % 8 != 0);
                }
            });
        }
        // Restarts from other threads at any moment.
        atOnce(4, [&](int thread) {
            for (int i = 0; i < 200; ++i) {
                if (thread % 2 == 0) {
                    loop.start();
                    loop.stop();
                } else {
                    loop.postItem(new CountedTask(counts), false, true);
                }
            }
        });
    }
    EXPECT_GT(counts.run, 0);
    EXPECT_LE(counts.run, counts.made);
    EXPECT_EQ(counts.deleted, counts.made);
}

/// An object that owns work on a loop and cancels it before it goes, as an application's objects
/// do. A task that starts afterwards touches freed memory.
struct Worker {
    explicit Worker(RunLoop& loop) : _loop(loop) {
        _loop.addTimer(makeRunnable([this] { ++_ticks; }, this), 0, true);
        for (int i = 0; i < 20; ++i) {
            _loop.postItem(makeRunnable([this] { work(); }, this), i % 2 == 0, false);
        }
    }
    ~Worker() {
        _loop.cancelTasksForObject(this);
        EXPECT_EQ(_alive, 0x5AFE);
        _alive = 0;
    }
    void work() {
        EXPECT_EQ(_alive, 0x5AFE);
        if (++_ticks % 4 == 0) {
            _loop.postItem(makeRunnable([this] { work(); }, this), false, false);
        }
    }
    RunLoop& _loop;
    int _alive = 0x5AFE;
    int _ticks = 0;
};

TEST(RunLoopStress, NothingOfACancelledObjectStarts) {
    RunLoop loop("cancelled");
    const Watchdog watchdog(loop);
    ASSERT_TRUE(loop.start());
    const uint64_t end = SystemUtil::getCPUTime() + 1000;
    CountedTask::Counts counts;
    atOnce(4, [&](int thread) {
        while (SystemUtil::getCPUTime() < end) {
            if (thread == 3) {
                loop.dumpLoopInfo();
                loop.postItem(new CountedTask(counts), false, true);
                continue;
            }
            auto worker = std::make_unique<Worker>(loop);
            if (thread == 0) {
                // Destroyed on the loop itself, between its own tasks.
                loop.postItem(makeRunnable([&] { worker.reset(); }), true, true);
            } else if (thread == 1) {
                std::this_thread::yield();
            }
        }
    });
    EXPECT_EQ(counts.run, counts.made);
}

}  // namespace
}  // namespace NIVUR
