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

// Two timers in eight have no task, and so both have the id 0.
TEST(TimerQueue, DoesAsAnOrderedSet) {
    std::minstd_rand random(4711);
    for (const int most : {3, 40, 1000}) {
        std::vector<std::unique_ptr<Timer>> owned;
        std::set<Timer*, Less> model;
        TimerQueue queue;
        const auto any = [&] {
            return *std::next(model.begin(), static_cast<long>(random() % model.size()));
        };
        for (int step = 0; step < 30 * most; ++step) {
            const auto choice = random() % 64;
            const auto due = static_cast<uint64_t>(random() % 50);
            if (choice == 0) {
                const auto wanted = [due](const Timer& timer) {
                    return timer._nextTime % 7 == due % 7;
                };
                const Timer* last = nullptr;
                queue.removeIf(wanted, [&](Timer& timer) {
                    EXPECT_TRUE(wanted(timer) && (last == nullptr || *last < timer));
                    last = &timer;
                    EXPECT_EQ(model.erase(&timer), 1U);
                });
                for (const Timer* timer : model)
                    EXPECT_FALSE(wanted(*timer));
            } else if (choice < 32 && static_cast<int>(model.size()) < most) {
                std::unique_ptr<Runnable> task(step % 8 < 2 ? nullptr : makeRunnable([] {}));
                owned.push_back(std::make_unique<Timer>(std::move(task), 0U, false, due));
                owned.back()->_sequence = static_cast<uint64_t>(step);
                model.insert(owned.back().get());
                queue.add(*owned.back());
            } else if (!model.empty()) {
                Timer& timer = choice % 3 == 0 ? **model.begin() : *any();
                model.erase(&timer);
                if (choice % 2 == 0) {
                    timer.restart(due);
                    queue.update(timer);
                    model.insert(&timer);
                } else {
                    queue.remove(timer);
                    const Timer* const found = queue.find(timer.id());
                    EXPECT_TRUE(found == nullptr || (model.count(const_cast<Timer*>(found)) == 1 &&
                                                     found->id() == timer.id()));
                }
            }
            ASSERT_EQ(queue.size(), model.size());
            ASSERT_EQ(queue.first(), model.empty() ? nullptr : *model.begin());
            if (!model.empty()) {
                const Timer* const timer = any();
                const Timer* const found = queue.find(timer->id());
                ASSERT_TRUE(found != nullptr && found->id() == timer->id());
            }
        }
    }
}

}  // namespace
}  // namespace NIVUR
