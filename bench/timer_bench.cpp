#include "loops.h"

namespace bench {

namespace {

const Family kFamily("timers");
using ManyTimersLoops = Peers<NivurLoop, UvLoop, AsioLoop, EventLoop, GlibLoop>;
using AllLoops = Peers<NivurLoop, UvLoop, AsioLoop, EventLoop, GlibLoop, LooperLoop>;
using PunctualLoops = Peers<NivurLoop, UvLoop, AsioLoop, GlibLoop, LooperLoop>;
constexpr size_t kBatch = 2000;

/// Timers that stay pending while others come and go; due within a minute of each other.
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
    std::vector<decltype(_loop.addTimer(0, {}))> _timers;
};

template <class Loop>
void measureAddAndStop(State& state, size_t count) {
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
void measureReset(State& state, size_t count) {
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

/// From the moment at which all are due, and their adding is over, until the last has run.
template <class Loop>
void measureFire(State& state, size_t count) {
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

/// A loop that always has a task of some 20 us to run, and a timer of 2 ms added again and again.
template <class Loop>
class BusyLoop {
  public:
    void measure(int count) {
        _left = count;
        _loop.post([this] {
            work();
            addTimer();
        });
        _done.wait();
    }
    Samples& lateness() { return _lateness; }

  private:
    void work() {
        const auto end = Clock::now() + std::chrono::microseconds(20);
        while (Clock::now() < end) {
        }
        if (_left > 0) {
            _loop.post([this] { work(); });
        } else {
            _done.set();
        }
    }

    void addTimer() {
        _due = Clock::now() + std::chrono::milliseconds(2);
        _loop.addTimer(2, [this] {
            _lateness.add(Clock::now() - _due);
            if (--_left > 0) {
                addTimer();
            }
        });
    }

    Samples _lateness;
    Signal _done;
    int _left = 0;
    Clock::time_point _due;
    Loop _loop;
};

template <class Loops>
void addCounts(Loops loops, size_t count) {
    const std::string number = std::to_string(count);
    kFamily.addThreaded("add and stop, " + number + " pending", loops,
                        [=](State& state, auto peer) {
                            measureAddAndStop<typename decltype(peer)::Type>(state, count);
                        });
    kFamily.addThreaded("reset, " + number + " pending", loops, [=](State& state, auto peer) {
        measureReset<typename decltype(peer)::Type>(state, count);
    });
    kFamily.addThreaded("fire, " + number + " due", loops, [=](State& state, auto peer) {
        measureFire<typename decltype(peer)::Type>(state, count);
    });
}

}  // namespace

void addTimers() {
    addCounts(AllLoops(), 100);
    addCounts(ManyTimersLoops(), 1000);  // the Looper's times grow with the number of its timers
    addCounts(ManyTimersLoops(), 10000);
    // Not for libevent, whose timers wait for as long as tasks post further tasks.
    kFamily.addThreaded("lateness on a busy loop", PunctualLoops(), [](State& state, auto peer) {
        BusyLoop<typename decltype(peer)::Type> busy;
        for (auto _ : state) {
            busy.measure(100);
        }
        state.counters["p99"] = busy.lateness().at(0.99);
    });
}

}  // namespace bench
