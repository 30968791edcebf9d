#ifndef NIVUR_BENCH_LOOP_SUPPORT_H
#define NIVUR_BENCH_LOOP_SUPPORT_H

#include <functional>
#include <utility>

#include "bench.h"

/// The adapters of run loops. Each has a thread of its own and, except libuv's, uses the peer's
/// queue. Called on any thread:
///     post(task)                    queues a task
///     postFirst(task)               queues a task before all others
///     call(task)                    posts a task and waits until it has run
/// Called on the loop's thread:
///     postCancellable(task)         returns what cancel() needs to remove the task
///     addTimer(ms, action)          adds a timer that fires once; returns a TimerHandle
///     resetTimer(timer), stopTimer(timer)
///     addWatch(descriptor, action)  calls `action` while the descriptor is readable; returns a
///                                   WatchHandle
///     removeWatch(watch)
/// An adapter lacks the operations that its peer lacks. A posted task costs every peer except libuv
/// an allocation, since they erase its type.
namespace bench {

using Action = std::function<void()>;
constexpr unsigned int kTimerInterval = 3600 * 1000;  // ms, for timers that only stay pending

/// A task as an entry of a peer's queue, whose type has a virtual run().
template <class Entry, class Task>
struct Item : Entry {
    explicit Item(Task own) : task(std::move(own)) {}
    void run() override { task(); }
    Task task;
};

/// Makes a loop whose thread runs on a processor.
template <class Loop>
Loop startOn(int processor) {
    const OneProcessor there(processor);
    return Loop();
}

template <class Loop, class Task>
void callThroughPost(Loop& loop, Task task) {
    Signal done;
    loop.post([&] {
        task();
        done.set();
    });
    done.wait();
}

}  // namespace bench

#endif
