#include "private/timer_queue.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <set>
#include <tuple>
#include <utility>

namespace NIVUR {
namespace {

struct Timer {
    long id() const { return name; }
    bool operator<(const Timer& other) const {
        return std::tie(due, sequence) < std::tie(other.due, other.sequence);
    }

    long name;
    int due;
    int sequence;
    size_t _place = 0;
    Timer* _nextOfBucket = nullptr;
    Timer** _linkOfBucket = nullptr;
};

struct Less {
    bool operator()(const Timer* a, const Timer* b) const { return *a < *b; }
};

// Names are as far from one another as addresses are, and two timers in eight share one.
TEST(TimerQueue, DoesAsAnOrderedSet) {
    std::minstd_rand random(4711);
    for (const int most : {3, 40, 1000}) {
        std::vector<std::unique_ptr<Timer>> owned;
        std::set<Timer*, Less> model;
        TimerQueue<Timer> queue;
        const auto any = [&] {
            return *std::next(model.begin(), static_cast<long>(random() % model.size()));
        };
        for (int step = 0; step < 30 * most; ++step) {
            const auto choice = random() % 64;
            const int due = static_cast<int>(random()) % 50;
            if (choice == 0) {
                const auto wanted = [due](const Timer& timer) { return timer.due % 7 == due % 7; };
                const Timer* last = nullptr;
                queue.removeIf(wanted, [&](Timer& timer) {
                    EXPECT_TRUE(wanted(timer) && (last == nullptr || *last < timer));
                    last = &timer;
                    EXPECT_EQ(model.erase(&timer), 1U);
                });
                for (const Timer* timer : model)
                    EXPECT_FALSE(wanted(*timer));
            } else if (choice < 32 && static_cast<int>(model.size()) < most) {
                const long name = 0x70000000 + 48 * (step - (step % 8 == 1));
                owned.push_back(std::make_unique<Timer>(Timer{name, due, step}));
                model.insert(owned.back().get());
                queue.add(*owned.back());
            } else if (!model.empty()) {
                Timer& timer = choice % 3 == 0 ? **model.begin() : *any();
                model.erase(&timer);
                if (choice % 2 == 0) {
                    timer.due = due;
                    queue.update(timer);
                    model.insert(&timer);
                } else {
                    queue.remove(timer);
                    const Timer* const found = queue.find(timer.name);
                    EXPECT_TRUE(found == nullptr || (model.count(const_cast<Timer*>(found)) == 1 &&
                                                     found->name == timer.name));
                }
            }
            ASSERT_EQ(queue.size(), model.size());
            ASSERT_EQ(queue.first(), model.empty() ? nullptr : *model.begin());
            if (!model.empty()) {
                const Timer* const timer = any();
                const Timer* const found = queue.find(timer->name);
                ASSERT_TRUE(found != nullptr && found->name == timer->name);
            }
        }
    }
}

}  // namespace
}  // namespace NIVUR
