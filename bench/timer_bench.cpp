#include "loops.h"

namespace bench {

namespace {

const Family kFamily("timers");
using ManyTimersLoops = Peers<NivurLoop, UvLoop, AsioLoop, EventLoop, GlibLoop>;
using AllLoops = Peers<NivurLoop, UvLoop, AsioLoop, EventLoop, GlibLoop, LooperLoop>;
using PunctualLoops = Peers<NivurLoop, UvLoop, AsioLoop, GlibLoop, LooperLoop>;
constexpr size_t kBatch = 2000;

/// Timers that stay pending while others are added and removed; due within a minute of each other.
template <class Loop>
class Pending {
  public:
    Pending(Loop& loop, size_t count) : _loop(loop) {
        _loop.call([&] {
            for (size_t i = 0; i < count; ++i) {
                _timers.push_back(add(i));
            }
        });
    }
    ~Pending() {
        _loop.call([this] {
            for (auto& timer : _timers) {
                _loop.stopTimer(timer);
            }
        });
    }

    auto add(size_t number) {
        return _loop.addTimer(kTimerInterval + static_cast<unsigned int>(number * 7919 % 60000),
                              [] {});
    }
    auto& operator[](size_t number) { return _timers[number * 7919 % _timers.size()]; }

  private:
    Loop& _loop;
    std::vector<typename Loop::TimerHandle> _timers;
};

template <class Loop>
void measureAddAndStop(State& state, Peer<Loop>, size_t count) {
    Loop loop;
    Pending<Loop> pending(loop, count);
    for (auto _ : state) {
        loop.call([&] {
            for (size_t i = 0; i < kBatch; ++i) {
                auto timer = pending.add(i);
                loop.stopTimer(timer);
            }
        });
    }
    setItems(state, kBatch);
}

template <class Loop>
void measureReset(State& state, Peer<Loop>, size_t count) {
    Loop loop;
    Pending<Loop> pending(loop, count);
    for (auto _ : state) {
        loop.call([&] {
            for (size_t i = 0; i < kBatch; ++i) {
                loop.resetTimer(pending[i]);
            }
        });
    }
    setItems(state, kBatch);
}

/// The time from when all timers are added and due until the last one has run.
template <class Loop>
void measureFire(State& state, Peer<Loop>, size_t count) {
    Loop loop;
    Samples fires;
    repeat(state, 5, [&] {
        Signal done;
        Clock::time_point begin;
        size_t left = count;
        loop.post([&] {
            for (size_t i = 0; i < count; ++i) {
                loop.addTimer(1, [&] {
                    if (--left == 0) {
                        fires.add((Clock::now() - begin) / static_cast<int>(count));
                        done.set();
                    }
                });
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
            begin = Clock::now();
        });
        done.wait();
    });
    state.counters["time"] = fires.at(0.5);
}

/// Keeps ten tasks of about 20 us queued and repeatedly adds a timer of 1 ms. Counts the tasks that
/// end between the due time of the timer and its run.
template <class Loop>
class BusyLoop {
  public:
    double tasksBeforeTimer(int timers) {
        _timersLeft = timers;
        _loop.post([this] {
            addTimer();
            for (_tasksQueued = 0; _tasksQueued < 10; ++_tasksQueued) {
                post();
            }
        });
        _done.wait();
        return std::exchange(_tasksBefore, 0) / timers;
    }

  private:
    void post() {
        _loop.post([this] { work(); });
    }

    void work() {
        const auto end = Clock::now() + std::chrono::microseconds(20);
        while (Clock::now() < end) {
        }
        if (_timersLeft > 0) {
            _tasksBefore += Clock::now() > _due ? 1 : 0;
            post();
        } else if (--_tasksQueued == 0) {
            _done.set();
        }
    }

    void addTimer() {
        _due = Clock::now() + std::chrono::milliseconds(1);
        _loop.addTimer(1, [this] {
            if (--_timersLeft > 0) {
                addTimer();
            }
        });
    }

    Signal _done;
    int _timersLeft = 0;
    int _tasksQueued = 0;
    double _tasksBefore = 0;
    Clock::time_point _due;
    Loop _loop;
};

template <class Loop>
void measureBusy(State& state, Peer<Loop>) {
    BusyLoop<Loop> busy;
    double tasks = 0;
    for (auto _ : state) {
        tasks += busy.tasksBeforeTimer(20);
    }
    state.counters["# of tasks before it"] = tasks / static_cast<double>(state.iterations());
}

template <class Loops>
void addCounts(Loops loops, size_t count) {
    const std::string number = std::to_string(count);
    kFamily.addThreaded("add and stop, " + number + " pending", loops,
                        [=](State& state, auto peer) { measureAddAndStop(state, peer, count); });
    kFamily.addThreaded("reset, " + number + " pending", loops,
                        [=](State& state, auto peer) { measureReset(state, peer, count); });
    kFamily.addThreaded("fire, " + number + " due", loops,
                        [=](State& state, auto peer) { measureFire(state, peer, count); });
}

}  // namespace

void addTimers() {
    addCounts(AllLoops(), 100);
    addCounts(ManyTimersLoops(), 1000);  // the Looper's times grow with the number of its timers
    addCounts(ManyTimersLoops(), 10000);
    // Without libevent, whose timers starve while tasks post further tasks.
    kFamily.addThreaded("timer due among 10 queued tasks", PunctualLoops(),
                        [](State& state, auto peer) { measureBusy(state, peer); });
}

}  // namespace bench
