#include <nivur/nivur.h>

// A plug-in that has a type of its own and uses every variable that the headers define.
struct Own {
    void call() {}
};
template class NIVUR::SharedPtr<Own>;
template class NIVUR::Functor0<Own, void (Own::*)()>;

extern const void* const all[];
const void* const all[] = {&NIVUR::Buffer::_checkByte, NIVUR::Buffer::_kParameterKey,
                           &NIVUR::Thread::INVALID_THREAD_ID,
                           &NIVUR::SharedPtr<Own>::_kDefaultPtrDisposer};

/// Prepares what needs memory, and then makes calls that need none, on a thread that cannot
/// allocate. Returns true if all of them return, except the waiting post, which throws.
extern "C" NIVUR_EXPORT bool runWithoutMemory(void (*run)(void (*)())) {
    using namespace NIVUR;
    // Static, because the callback has no argument to pass state.
    static RunLoop loop("loop");
    static Thread thread;
    static Runnable* task = makeRunnable([] {});
    static bool threw = false;
    bool ready = loop.start() && thread.start(makeRunnable([] {}), "thread");
    ready = ready && loop.addTimer(makeRunnable([] {}), 1, true) != 0;
    run([] {
        loop.stopTimer(1);
        loop.cancelTasksForObject(&loop);
        try {
            loop.postItem(task, false, true);
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        loop.stop();
        thread.waitForStop();
    });
    return ready && threw;
}
