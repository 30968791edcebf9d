#ifndef NIVUR_BENCH_H
#define NIVUR_BENCH_H

#include <benchmark/benchmark.h>
#include <sched.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// Common code of the benchmark families. A measurement is named FAMILY/SERVICE/PEER, which
/// report.py splits: each service is a row of the table. The value of a measurement is the time of
/// one item in nanoseconds. If it sets counters, each counter is a value: a time in nanoseconds or,
/// if its name begins with '#', a plain number.
namespace bench {

using benchmark::State;
using Clock = std::chrono::steady_clock;

inline double nanoseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::nano>(duration).count();
}

/// Selects the adapter that a measuring function uses.
template <class Adapter>
struct Peer {};

/// Marks a peer that guarantees less, or does something else: shown, but not compared.
template <class Adapter>
struct Other : Adapter {
    using Adapter::Adapter;
    static std::string name() { return "other:" + Adapter::name(); }
};

/// Marks the cost of the work without a library: no implementation could be faster.
template <class Adapter>
struct Limit : Adapter {
    using Adapter::Adapter;
    static std::string name() { return "limit:" + Adapter::name(); }
};

/// The adapters of a row.
template <class... Adapters>
struct Peers {};

/// While it exists, pins the calling thread and those that it starts to one processor. Waking a
/// thread on another processor can take ten times as long as everything else, so times with threads
/// that the system places are not comparable.
class OneProcessor {
  public:
    explicit OneProcessor(int processor) {
        // Read once, because some systems count only the processors that the thread may use.
        static const unsigned int all = std::max(1U, std::thread::hardware_concurrency());
        sched_getaffinity(0, sizeof(_before), &_before);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<unsigned int>(processor) % all, &one);
        sched_setaffinity(0, sizeof(one), &one);
    }
    ~OneProcessor() { sched_setaffinity(0, sizeof(_before), &_before); }

  private:
    cpu_set_t _before;
};

class Family {
  public:
    explicit Family(std::string name) : _name(std::move(name)) {}

    /// Measures body(state, Peer<Adapter>) for each of the adapters, in the processor time of the
    /// single thread that does all the work: other programs disturb it less than the clock.
    template <class... Adapters, class Body>
    void add(const std::string& service, Peers<Adapters...>, Body body) const {
        (addOne<Adapters>(service, body), ...);
    }

    /// Measures by the clock. Each thread is pinned to its own processor while there are enough;
    /// threads that it starts share it.
    template <class... Adapters, class Body>
    void addThreaded(const std::string& service, Peers<Adapters...>, Body body,
                     int threads = 1) const {
        (addOne<Adapters>(service, body)->UseRealTime()->Threads(threads), ...);
    }

    /// Measures body(state, peer, processor) by the clock twice: with the other thread on the
    /// processor of the measuring thread, 0, and on processor 1.
    template <class AnyPeers, class Body>
    void addPlaced(const std::string& service, AnyPeers peers, Body body) const {
        for (const int processor : {0, 1}) {
            addThreaded(service + (processor == 0 ? ", one processor" : ", two processors"), peers,
                        [=](State& state, auto peer) { body(state, peer, processor); });
        }
    }

    /// Measures a body that several threads run at the same time.
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
        return benchmark::RegisterBenchmark(name.c_str(), [body](State& state) {
            const OneProcessor processor(state.thread_index());
            body(state, Peer<Adapter>());
        });
    }

    std::string _name;
};

/// Sets the number of items of an iteration.
inline void setItems(State& state, size_t perIteration) {
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(perIteration));
}

/// Runs `body` at least so many times: enough for a percentile, or until all threads are running.
template <class Body>
void repeat(State& state, int times, Body body) {
    for (auto _ : state) {
        for (int i = 0; i < times; ++i) {
            body();
        }
    }
}

/// The times of single events, for percentiles.
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

/// A counting semaphore made of the standard library, the same for every peer.
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
