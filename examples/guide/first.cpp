#include <nivur/nivur.h>

#include <cstdio>

int main() {
    NIVUR::RunLoop loop("worker");
    if (!loop.start()) {
        return 1;
    }
    int answer = 0;
    loop.postItem(NIVUR::makeRunnable([&] { answer = 42; }), false,
                  true);  // waits until it has run
    std::printf("the loop says %d\n", answer);

    NIVUR::Semaphore rung;
    loop.addTimer(NIVUR::makeRunnable([&] { rung.notify(); }), 100, false);  // once, in 100 ms
    std::printf("the timer %s\n", rung.wait(5000) == 0 ? "rang" : "is late");
    loop.stop();
}
