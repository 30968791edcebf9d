#include <nivur/nivur.h>

#include <cstdio>

// The library writes nothing itself: without a sink, its messages are lost.
static void printLine(int level, const char* format, va_list arguments) {
    if (level >= NIVUR::LOG_WARN) {
        std::vprintf(format, arguments);
        std::putchar('\n');
    }
}

int main() {
    NIVUR::Log::setCB(printLine);
    NIVUR::RunLoop loop("worker");
    int answer = 0;
    const auto compute = [&] { return NIVUR::makeRunnable([&] { answer += 42; }); };
    loop.postItem(compute(), false, true);  // refused: the loop is not running yet
    if (!loop.start()) {
        return 1;
    }
    loop.postItem(compute(), false, true);  // waits until it has run
    std::printf("the loop says %d\n", answer);

    NIVUR::Semaphore rung;
    loop.addTimer(NIVUR::makeRunnable([&] { rung.notify(); }), 100, false);  // once, in 100 ms
    std::printf("the timer %s\n", rung.wait(5000) == 0 ? "rang" : "is late");
    loop.stop();
}
