// A repeating timer that stops itself, and a watchdog that each beat restarts.

#include <nivur/nivur.h>

#include <cstdio>

class Heart {
  public:
    // Timers may be added before the loop is started. Do so if a task uses the id of its timer: on
    // a running loop, the task may run before addTimer() has returned the id.
    Heart() {
        _beat = _loop.addTimer(NIVUR::makeRunnable([this] { beat(); }), 20, true);
        _watchdog =
            _loop.addTimer(NIVUR::makeRunnable([] { std::puts("no beat for 5 s"); }), 5000, false);
        _loop.start();
    }
    ~Heart() { _loop.stop(); }

    void waitForLastBeat() { _lastBeat.wait(); }

  private:
    void beat() {
        std::printf("beat %d\n", ++_beats);
        _loop.resetTimer(_watchdog);  // due 5 s from now again
        if (_beats == 3) {
            _loop.stopTimer(_beat);  // from its own task, for which it does not wait
            _lastBeat.notify();
        }
    }

    int _beats = 0;
    long _beat = 0;
    long _watchdog = 0;
    NIVUR::Semaphore _lastBeat;
    NIVUR::RunLoop _loop{"heart"};  // last: destroyed before what its tasks use
};

int main() {
    NIVUR::StopWatch watch;
    Heart heart;
    heart.waitForLastBeat();
    const unsigned int ms = watch.record();
    std::printf("three beats of 20 ms took %s\n", ms >= 60 ? "60 ms or more" : "too little");
    return ms >= 60 ? 0 : 1;
}
