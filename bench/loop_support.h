#ifndef NIVUR_BENCH_LOOP_SUPPORT_H
#define NIVUR_BENCH_LOOP_SUPPORT_H

#include <functional>
#include <utility>

#include "bench.h"

/// The adapters of run loops, each on a thread of its own and, with one exception, with the peer's
/// own queue:
///     post(task)             queues a task from any thread
///     postFirst(task)        the same, before queued tasks
///     call(task)             posts and waits until it has run
///     postCancellable(task)  returns what cancel() needs to remove the task; both on the loop's
///     thread addTimer(ms, action)   a timer that fires once; this and the rest on the loop's
///     thread resetTimer(timer), stopTimer(timer) addWatch(descriptor, action)  calls it while the
///     descriptor is readable removeWatch(watch)
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
