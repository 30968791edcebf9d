#ifndef NIVUR_BENCH_H
#define NIVUR_BENCH_H

#include <benchmark/benchmark.h>
#include <sched.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

/// What the families share. A measurement is called FAMILY/SERVICE/PEER, which report.py takes
/// apart: a row of its table for each service, a column for each peer. A cell is the time of one
/// item, or, if the measurement sets counters, those, in nanoseconds.
namespace bench {

using benchmark::State;
using Clock = std::chrono::steady_clock;

inline double nanoseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::nano>(duration).count();
}

/// Tells a measurement which adapter to use.
template <class Adapter>
struct Peer {
    using Type = Adapter;
};

/// A peer that promises less, or something else: shown, but no yardstick.
template <class Adapter>
struct Other : Adapter {
    using Adapter::Adapter;
    static std::string name() { return "other:" + Adapter::name(); }
};

/// What no implementation could be faster than.
template <class Adapter>
struct Limit : Adapter {
    using Adapter::Adapter;
    static std::string name() { return "limit:" + Adapter::name(); }
};

/// The adapters that are measured in a row.
template <class... Adapters>
struct Peers {};

/// Keeps this thread, and those that it starts, on one processor, its own or one that is named: to
/// wake another one takes up to ten times as long as all the rest, or does not, as chance places
/// the threads.
class OneProcessor {
  public:
    explicit OneProcessor(int processor = sched_getcpu()) {
        sched_getaffinity(0, sizeof(_before), &_before);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(processor, &one);
        sched_setaffinity(0, sizeof(one), &one);
    }
    ~OneProcessor() { sched_setaffinity(0, sizeof(_before), &_before); }

  private:
    cpu_set_t _before;
};

class Family {
  public:
    explicit Family(std::string name) : _name(std::move(name)) {}

    /// Measures body(state, Peer<Adapter>) for each of the adapters: the processor time of the one
    /// thread that does all the work, which other programs disturb less than they do a clock, on
    /// one processor, whose caches it does not lose.
    template <class... Adapters, class Body>
    void add(const std::string& service, Peers<Adapters...>, Body body) const {
        const auto onOneProcessor = [body](State& state, auto peer) {
            const OneProcessor processor;
            body(state, peer);
        };
        (addOne<Adapters>(service, onOneProcessor), ...);
    }

    /// Measures, by the clock, what is run on so many threads or has others work for it.
    template <class... Adapters, class Body>
    void addThreaded(const std::string& service, Peers<Adapters...>, Body body,
                     int threads = 1) const {
        (addOne<Adapters>(service, body)->UseRealTime()->Threads(threads), ...);
    }

    /// Measures what each of so many threads does.
    template <class AnyPeers, class Body>
    void addOnThreads(int threads, const std::string& service, AnyPeers peers, Body body) const {
        if (threads == 1) {
            add(service + ", 1 thread", peers, body);
        } else {
            addThreaded(service + ", " + std::to_string(threads) + " threads", peers, body,
                        threads);
        }
    }

  private:
    template <class Adapter, class Body>
    benchmark::internal::Benchmark* addOne(const std::string& service, Body body) const {
        const std::string name = _name + "/" + service + "/" + Adapter::name();
        return benchmark::RegisterBenchmark(name.c_str(),
                                            [body](State& state) { body(state, Peer<Adapter>()); });
    }

    std::string _name;
};

/// Says that an iteration was so many items.
inline void setItems(State& state, size_t perIteration) {
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(perIteration));
}

/// Runs `body` at least so many times: enough for a percentile, or for threads to get going.
template <class Body>
void repeat(State& state, int times, Body body) {
    for (auto _ : state) {
        for (int i = 0; i < times; ++i) {
            body();
        }
    }
}

/// Times of single events, for percentiles.
class Samples {
  public:
    void add(Clock::duration duration) { _values.push_back(nanoseconds(duration)); }

    double at(double share) {
        if (_values.empty()) {
            return 0;
        }
        const auto index = static_cast<size_t>(share * static_cast<double>(_values.size() - 1));
        const auto position = _values.begin() + static_cast<ptrdiff_t>(index);
        std::nth_element(_values.begin(), position, _values.end());
        return *position;
    }

  private:
    std::vector<double> _values;
};

/// A counting semaphore of the standard library's parts, the same for every peer.
class Signal {
  public:
    void set() {
        const std::lock_guard lock(_mutex);
        ++_count;
        _changed.notify_one();
    }

    void wait() {
        std::unique_lock lock(_mutex);
        _changed.wait(lock, [this] { return _count > 0; });
        --_count;
    }

  private:
    std::mutex _mutex;
    std::condition_variable _changed;
    int _count = 0;
};

void addRunLoop();
void addTimers();
void addWatches();
void addRuntime();
void addPool();
void addRing();
void addDictionary();
void addJson();
void addEvents();
void addSockets();
void addInterfaces();
void addText();

}  // namespace bench

#endif
