// Posts tasks to a run loop, which runs them on its own thread, one at a time.

#include <nivur/nivur.h>

#include <cstdio>

using NIVUR::makeRunnable;

// The library writes nothing itself: it passes its messages to this sink, on any thread.
static void printLine(int level, const char* fmt, va_list args) {
    if (level >= NIVUR::LOG_WARN) {
        std::vprintf(fmt, args);
        std::putchar('\n');
    }
}

int main() {
    NIVUR::Log::setCB(printLine);  // before any thread is started
    NIVUR::RunLoop loop("worker");
    if (!loop.start()) {
        return 1;
    }
    NIVUR::Semaphore posted;
    NIVUR::Semaphore done;
    const auto print = [](const char* text) { return makeRunnable([text] { std::puts(text); }); };

    loop.postItem(makeRunnable([&] { posted.wait(); }), false, false);  // busy until `posted`
    loop.postItem(print("first normal task"), false, false);
    loop.postItem(print("second normal task"), false, false);
    loop.postItem(print("high-priority task"), true, false);
    loop.postItem(makeRunnable([&] { done.notify(); }), false, false);
    posted.notify();
    done.wait();

    loop.stop();
    loop.postItem(print("never seen"), false, false);  // refused, and deleted
}
