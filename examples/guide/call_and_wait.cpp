// Calls a run loop and waits for the answer, and learns whether the task ran.

#include <nivur/nivur.h>

#include <cstdio>
#include <optional>

// What only the loop's thread touches needs no lock.
class Catalogue {
  public:
    Catalogue() { _loop.start(); }
    ~Catalogue() { _loop.stop(); }

    // From any thread, but never from a loop that this one may be waiting for.
    std::optional<int> add(int price) {
        std::optional<int> total;
        _loop.postItem(NIVUR::makeRunnable([&] { total = (_total += price); }), false, true);
        return total;  // the task has run, or was dropped and left it empty
    }

    void stop() { _loop.stop(); }

  private:
    int _total = 0;
    NIVUR::RunLoop _loop{"catalogue"};  // last: it ends before what its tasks use
};

int main() {
    Catalogue catalogue;
    catalogue.add(40);
    const auto total = catalogue.add(2);
    std::printf("total: %d\n", total.value_or(-1));
    catalogue.stop();
    std::printf("after the stop: %s\n", catalogue.add(1) ? "an answer" : "no answer");
    return total == 42 ? 0 : 1;
}
