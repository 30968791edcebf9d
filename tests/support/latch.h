#ifndef NIVUR_TESTS_SUPPORT_LATCH_H
#define NIVUR_TESTS_SUPPORT_LATCH_H

#include <condition_variable>
#include <mutex>

/// A latch for the threads of a test: wait() returns when count() was called as often as the
/// constructor was told.
class Latch {
  public:
    explicit Latch(int expected = 1) : _expected(expected) {}

    void count() {
        const std::lock_guard<std::mutex> lock(_mutex);
        --_expected;
        _changed.notify_all();
    }

    void wait() {
        std::unique_lock<std::mutex> lock(_mutex);
        _changed.wait(lock, [this] { return _expected <= 0; });
    }

  private:
    std::mutex _mutex;
    std::condition_variable _changed;
    int _expected;
};

#endif
