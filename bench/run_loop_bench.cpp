#include "loops.h"
#include "qt_loop.h"

namespace bench {

namespace {

const Family kFamily("run_loop");
using StreamLoops =
    Peers<NivurLoop, Other<UvLoop>, AsioLoop, EventLoop, GlibLoop, PocoLoop, QtLoop>;
using AllLoops =
    Peers<NivurLoop, Other<UvLoop>, AsioLoop, EventLoop, GlibLoop, PocoLoop, QtLoop, LooperLoop>;
using PriorityLoops = Peers<NivurLoop, EventLoop, GlibLoop, PocoLoop, QtLoop>;

constexpr int kQueued = 10000;

/// The cost of asking every task whether it belongs to the object that is cancelled.
struct AskingLoop : NivurLoop {
    static std::string name() { return "asking all"; }
    template <class Task>
    Handle postCancellable(Task task) {
        if (_tasks.size() == kQueued) {
            _tasks.clear();
        }
        auto* const object = reinterpret_cast<char*>(this) + _tasks.size();
        _tasks.emplace_back(NIVUR::makeRunnable(std::move(task), object));
        return object;
    }
    void cancel(Handle object) {
        const auto asked = [object](auto& task) { return task->getObject() == object; };
        benchmark::DoNotOptimize(std::count_if(_tasks.begin(), _tasks.end(), asked));
    }
    std::vector<std::unique_ptr<NIVUR::Runnable>> _tasks;
};
using CancellingLoops =
    Peers<NivurLoop, QtLoop, Other<EventLoop>, Other<GlibLoop>, Other<PocoLoop>, Limit<AskingLoop>>;

/// Counts tasks on the loop's thread and signals when the last one has run.
struct Countdown {
    int left;
    Signal done;

    void count() {
        if (--left == 0) {
            done.set();
        }
    }
};

template <class Loop>
void postMany(Loop& loop, Countdown& countdown, int count) {
    for (int i = 0; i < count; ++i) {
        loop.post([&countdown] { countdown.count(); });
    }
}

template <class Loop>
void measurePosts(State& state, Peer<Loop>, int processor, int posts, int posters) {
    Loop loop = startOn<Loop>(processor);
    for (auto _ : state) {
        Countdown countdown{posts, {}};
        std::vector<std::thread> others;
        for (int i = 1; i < posters; ++i) {
            others.emplace_back([&] { postMany(loop, countdown, posts / posters); });
        }
        postMany(loop, countdown, posts / posters);
        countdown.done.wait();
        for (std::thread& other : others) {
            other.join();
        }
    }
    setItems(state, static_cast<size_t>(posts));
}

/// The time from the post until the task runs. The loop has had time to fall asleep.
template <class Loop>
void measureWakeUp(State& state, Peer<Loop>, int processor) {
    Loop loop = startOn<Loop>(processor);
    Samples wakeUps;
    Samples posts;
    repeat(state, 50, [&] {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        Clock::time_point ran;
        Signal done;
        const auto begin = Clock::now();
        loop.post([&] {
            ran = Clock::now();
            done.set();
        });
        posts.add(Clock::now() - begin);
        done.wait();
        wakeUps.add(ran - begin);
    });
    state.counters["until it runs"] = wakeUps.at(0.5);
    state.counters["the poster's share"] = posts.at(0.5);
}

template <class Loop>
void measureCalls(State& state, Peer<Loop>, int processor) {
    Loop loop = startOn<Loop>(processor);
    Samples calls;
    int ran = 0;
    repeat(state, 500, [&] {
        const auto begin = Clock::now();
        loop.call([&ran] { ++ran; });
        calls.add(Clock::now() - begin);
    });
    benchmark::DoNotOptimize(ran);
    state.counters["time"] = calls.at(0.5);
}

/// The loop is blocked while 10,000 tasks and then an urgent one are queued.
template <class Loop>
void measurePriority(State& state, Peer<Loop>) {
    Loop loop;
    Samples waits;
    repeat(state, 5, [&] {
        Signal begun;
        Signal gate;
        Clock::time_point opened;
        Clock::time_point ran;
        loop.post([&] {
            begun.set();
            gate.wait();
            opened = Clock::now();
        });
        begun.wait();
        Countdown countdown{kQueued + 1, {}};
        postMany(loop, countdown, kQueued);
        loop.postFirst([&] {
            ran = Clock::now();
            countdown.count();
        });
        gate.set();
        countdown.done.wait();
        waits.add(ran - opened);
    });
    state.counters["time"] = waits.at(0.5);
}

/// A task that queues 10,000 tasks and cancels every hundredth of them.
template <class Loop>
void measureCancel(State& state, Peer<Loop>) {
    Loop loop;
    Samples cancels;
    repeat(state, 5, [&] {
        Signal done;
        loop.post([&] {
            std::vector<typename Loop::Handle> handles;
            for (int i = 0; i < kQueued; ++i) {
                handles.push_back(loop.postCancellable([] {}));
            }
            const auto begin = Clock::now();
            for (size_t i = 0; i < kQueued; i += 100) {
                loop.cancel(handles[i]);
            }
            cancels.add((Clock::now() - begin) / (kQueued / 100));
            loop.post([&] { done.set(); });
        });
        done.wait();
    });
    state.counters["time"] = cancels.at(0.5);
}

}  // namespace

void addRunLoop() {
    const auto addPosts = [](const char* service, auto loops, int posts, int posters) {
        kFamily.addPlaced(service, loops, [=](State& state, auto peer, int processor) {
            measurePosts(state, peer, processor, posts, posters);
        });
    };
    // The Looper's time for a post grows with its queue: it is left out where the queue is long.
    addPosts("post, 1 poster", StreamLoops(), 50000, 1);
    addPosts("post, 4 posters", StreamLoops(), 50000, 4);
    addPosts("post, bursts of 1000", AllLoops(), 1000, 1);
    kFamily.addPlaced(
        "post to a sleeping loop", AllLoops(),
        [](State& state, auto peer, int processor) { measureWakeUp(state, peer, processor); });
    kFamily.addPlaced("post and wait", AllLoops(), [](State& state, auto peer, int processor) {
        measureCalls(state, peer, processor);
    });
    kFamily.addThreaded("urgent post behind 10000", PriorityLoops(),
                        [](State& state, auto peer) { measurePriority(state, peer); });
    kFamily.addThreaded("cancel among 10000", CancellingLoops(),
                        [](State& state, auto peer) { measureCancel(state, peer); });
}

}  // namespace bench
