#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

#include "loops.h"

namespace bench {

namespace {

const Family kFamily("watches");
using AllLoops = Peers<NivurLoop, UvLoop, AsioLoop, EventLoop, GlibLoop, LooperLoop>;
constexpr int kRounds = 500;
constexpr size_t kWatched = 1000;
constexpr size_t kBatch = 500;

/// The two connected ends of a socket pair.
class Ends {
  public:
    Ends() { ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, _ends.data()); }
    Ends(const Ends&) = delete;
    Ends& operator=(const Ends&) = delete;
    ~Ends() {
        ::close(_ends[0]);
        ::close(_ends[1]);
    }
    int operator[](size_t end) const { return _ends[end]; }
    void send(size_t end) const {
        const char byte = 'x';
        benchmark::DoNotOptimize(::write(_ends[end], &byte, 1));
    }
    void take(size_t end) const {
        char byte = 0;
        benchmark::DoNotOptimize(::read(_ends[end], &byte, 1));
    }

  private:
    std::array<int, 2> _ends{};
};

/// Adds a watch from outside, as all peers allow it: on the loop's thread.
template <class Loop>
auto addWatch(Loop& loop, int descriptor, const Action& action) {
    decltype(loop.addWatch(0, {})) watch{};
    loop.call([&] { watch = loop.addWatch(descriptor, action); });
    return watch;
}

template <class Loop, class Watch>
void removeWatch(Loop& loop, const Watch& watch) {
    loop.call([&] { loop.removeWatch(watch); });
}

/// From the write until the task runs.
template <class Loop>
void measureByte(State& state) {
    const OneProcessor processor;
    const Ends ends;
    Loop loop;
    Signal done;
    Clock::time_point ran;
    const auto watch = addWatch(loop, ends[0], [&] {
        ran = Clock::now();
        ends.take(0);
        done.set();
    });
    Samples times;
    repeat(state, kRounds, [&] {
        const auto begin = Clock::now();
        ends.send(1);
        done.wait();
        times.add(ran - begin);
    });
    state.counters["median"] = times.at(0.5);
    removeWatch(loop, watch);
}

/// A byte goes back and forth between two loops: the time of one way.
template <class Loop>
void measureBackAndForth(State& state) {
    const OneProcessor processor;
    const Ends ends;
    std::array<Loop, 2> loops;
    Signal done;
    int left = 0;
    const auto pass = [&](size_t end) {
        ends.take(end);
        if (end == 0 && --left == 0) {
            done.set();
        } else {
            ends.send(end);
        }
    };
    const auto first = addWatch(loops[0], ends[0], [&] { pass(0); });
    const auto second = addWatch(loops[1], ends[1], [&] { pass(1); });
    for (auto _ : state) {
        left = kRounds;
        ends.send(0);
        done.wait();
    }
    setItems(state, size_t{2} * kRounds);
    removeWatch(loops[0], first);
    removeWatch(loops[1], second);
}

/// So many of a thousand descriptors become ready again and again: the time of one of them.
template <class Loop>
void measureReady(State& state, size_t ready) {
    const OneProcessor processor;
    std::vector<int> descriptors;
    Loop loop;
    Signal done;
    size_t left = 0;
    std::vector<decltype(loop.addWatch(0, {}))> watches;
    for (size_t i = 0; i < kWatched; ++i) {
        const int descriptor = ::eventfd(0, EFD_NONBLOCK);
        descriptors.push_back(descriptor);
        watches.push_back(addWatch(loop, descriptor, [&, descriptor] {
            eventfd_t value = 0;
            ::eventfd_read(descriptor, &value);
            if (--left == 0) {
                done.set();
            }
        }));
    }
    for (auto _ : state) {
        for (int round = 0; round < 20; ++round) {
            loop.call([&] {  // so that the loop looks when all are ready
                left = ready;
                for (size_t i = 0; i < ready; ++i) {
                    ::eventfd_write(descriptors[i * (kWatched / ready)], 1);
                }
            });
            done.wait();
        }
    }
    setItems(state, 20 * ready);
    for (auto& watch : watches) {
        removeWatch(loop, watch);
    }
    loop.call([] {});  // some peers let go of a descriptor a pass later
    for (const int descriptor : descriptors) {
        ::close(descriptor);
    }
}

template <class Loop>
void measureAddAndRemove(State& state) {
    const Ends ends;
    Loop loop;
    for (auto _ : state) {
        loop.call([&] {
            for (size_t i = 0; i < kBatch; ++i) {
                auto watch = loop.addWatch(ends[0], [] {});
                loop.removeWatch(watch);
            }
        });
    }
    setItems(state, kBatch);
}

}  // namespace

void addWatches() {
    kFamily.addThreaded("byte to a task", AllLoops(), [](State& state, auto peer) {
        measureByte<typename decltype(peer)::Type>(state);
    });
    kFamily.addThreaded("byte between two loops", AllLoops(), [](State& state, auto peer) {
        measureBackAndForth<typename decltype(peer)::Type>(state);
    });
    for (const size_t ready : {size_t{1}, size_t{100}}) {
        kFamily.addThreaded(std::to_string(ready) + " of 1000 ready", AllLoops(),
                            [=](State& state, auto peer) {
                                measureReady<typename decltype(peer)::Type>(state, ready);
                            });
    }
    kFamily.addThreaded("add and remove", AllLoops(), [](State& state, auto peer) {
        measureAddAndRemove<typename decltype(peer)::Type>(state);
    });
}

}  // namespace bench
