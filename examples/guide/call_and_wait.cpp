// Calls a run loop, waits for the answer, and finds out whether the task ran.

#include <nivur/nivur.h>

#include <cstdio>
#include <optional>

// Needs no lock: only the loop's thread uses its data.
class Catalogue {
  public:
    Catalogue() { _loop.start(); }
    ~Catalogue() { _loop.stop(); }

    // May be called on any thread, but not on a loop for which this one may wait.
    std::optional<int> add(int price) {
        std::optional<int> total;
        _loop.postItem(NIVUR::makeRunnable([&] { total = (_total += price); }), false, true);
        return total;  // the task has run, or was dropped and left it empty
    }

    void stop() { _loop.stop(); }

  private:
    int _total = 0;
    NIVUR::RunLoop _loop{"catalogue"};  // last: destroyed before what its tasks use
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
