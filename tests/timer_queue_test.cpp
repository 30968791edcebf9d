#include "private/timer_queue.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <set>
#include <utility>

namespace NIVUR {
namespace {

struct Less {
    bool operator()(const Timer* a, const Timer* b) const { return *a < *b; }
};

/// Changes a queue and an ordered set in the same way, at random.
class Script {
  public:
    explicit Script(size_t most) : _most(most) {}

    void change(int step) {
        const auto choice = _random() % 64;
        const auto due = static_cast<uint64_t>(_random() % 50);
        if (choice == 0) {
            removeAll(due % 7);
        } else if (choice < 32 && _model.size() < _most) {
            add(step, due);
        } else if (!_model.empty()) {
            Timer& timer = choice % 3 == 0 ? **_model.begin() : *any();
            choice % 2 == 0 ? restart(timer, due) : remove(timer);
        }
    }

    void compare() {
        ASSERT_EQ(_queue.size(), _model.size());
        ASSERT_EQ(_queue.first(), _model.empty() ? nullptr : *_model.begin());
        if (_model.empty()) return;
        const Timer* const timer = any();
        const Timer* const found = _queue.find(timer->id());
        ASSERT_NE(found, nullptr);
        ASSERT_EQ(found->id(), timer->id());
    }

  private:
    Timer* any() {
        return *std::next(_model.begin(), static_cast<long>(_random() % _model.size()));
    }

    /// Two timers in eight have no task, and so both have the id 0.
    void add(int step, uint64_t due) {
        std::unique_ptr<Runnable> task(step % 8 < 2 ? nullptr : makeRunnable([] {}));
        _owned.push_back(std::make_unique<Timer>(std::move(task), 0U, false, due));
        Timer& timer = *_owned.back();
        timer._sequence = static_cast<uint64_t>(step);
        _model.insert(&timer);
        _queue.add(timer);
    }

    void restart(Timer& timer, uint64_t due) {
        _model.erase(&timer);
        timer.restart(due);
        _queue.update(timer);
        _model.insert(&timer);
    }

    void remove(Timer& timer) {
        _model.erase(&timer);
        _queue.remove(timer);
        Timer* const found = _queue.find(timer.id());
        if (found == nullptr) return;
        EXPECT_EQ(_model.count(found), 1U);
        EXPECT_EQ(found->id(), timer.id());
    }

    void removeAll(uint64_t remainder) {
        const auto wanted = [&](const Timer& timer) { return timer._nextTime % 7 == remainder; };
        const Timer* last = nullptr;
        _queue.removeIf(wanted, [&](Timer& timer) {
            EXPECT_TRUE(wanted(timer));
            EXPECT_TRUE(last == nullptr || *last < timer);
            last = &timer;
            EXPECT_EQ(_model.erase(&timer), 1U);
        });
        for (const Timer* timer : _model)
            EXPECT_FALSE(wanted(*timer));
    }

    const size_t _most;
    std::minstd_rand _random{4711};
    std::vector<std::unique_ptr<Timer>> _owned;
    std::set<Timer*, Less> _model;
    TimerQueue _queue;
};

TEST(TimerQueue, DoesAsAnOrderedSet) {
    for (const int most : {3, 40, 1000}) {
        Script script(static_cast<size_t>(most));
        for (int step = 0; step < 30 * most && !HasFailure(); ++step) {
            script.change(step);
            script.compare();
        }
    }
}

}  // namespace
}  // namespace NIVUR
