#include <gtest/gtest.h>
#include <nivur/mutex.h>
#include <nivur/semaphore.h>
#include <nivur/system_util.h>

#include <atomic>
#include <memory>
#include <thread>

namespace NIVUR {
namespace {

constexpr uint64_t kSlowMachineMs = 2000;

TEST(Semaphore, TimedWaitIsNeverEarlyAndEverySignalEndsOneWait) {
    Semaphore semaphore;
    for (const unsigned int timeoutMs : {0U, 1U, 7U, 50U, 0U}) {
        const uint64_t begin = SystemUtil::getCPUTimeInMicroseconds();
        EXPECT_EQ(semaphore.wait(timeoutMs), 1);
        const uint64_t elapsed = SystemUtil::getCPUTimeInMicroseconds() - begin;
        EXPECT_GE(elapsed, timeoutMs * 1000U);
        EXPECT_LT(elapsed, (timeoutMs + kSlowMachineMs) * 1000U);
        EXPECT_EQ(semaphore.notify(), 0);  // not for waits that timed out
        EXPECT_EQ(semaphore.notify(), 0);
        EXPECT_EQ(semaphore.wait(), 0);
        EXPECT_EQ(semaphore.wait(0), 0);
    }
    // Two signals in a row wake two waiting threads.
    for (int round = 0; round < 20; ++round) {
        std::thread other([&] { EXPECT_EQ(semaphore.wait(0xFFFFFFFFU), 0); });
        std::thread notifier([&] {
            semaphore.notify();
            semaphore.notify();
        });
        EXPECT_EQ(semaphore.wait(kSlowMachineMs), 0);
        other.join();
        notifier.join();
    }
}

// Each round destroys the semaphore as soon as its signal was taken, while notify() may still be
// returning. In one round of four the signal arrives as a first wait times out.
TEST(Semaphore, WaiterMayDestroyItAtOnce) {
    std::atomic<Semaphore*> shared{nullptr};
    std::thread notifier([&] {
        for (unsigned i = 0; i < 3000; ++i) {
            Semaphore* semaphore = nullptr;
            while ((semaphore = shared.exchange(nullptr)) == nullptr)
                std::this_thread::yield();
            const uint64_t begin = SystemUtil::getCPUTimeInMicroseconds();
            while (i % 4 == 0 && SystemUtil::getCPUTimeInMicroseconds() < begin + 1000 + i % 140) {
            }
            semaphore->notify();
        }
    });
    for (int i = 0; i < 3000; ++i) {
        const auto semaphore = std::make_unique<Semaphore>();
        shared = semaphore.get();
        if (i % 4 != 0 || semaphore->wait(1) == 1) {
            ASSERT_EQ(i % 2 == 0 ? semaphore->wait() : semaphore->wait(60000), 0);
        }
        if (i % 8 == 0) {
            ASSERT_EQ(semaphore->wait(1), 1);  // there was only one signal
        }
    }
    notifier.join();
}

TEST(Mutex, IsExclusiveAndScoped) {
    Mutex mutex;
    const auto tryElsewhere = [&] {
        bool taken = false;
        // The result says whether the lock is held, which the analysis cannot follow.
        std::thread([&]() NIVUR_NO_THREAD_SAFETY_ANALYSIS {
            taken = mutex.trylock() && mutex.unlock();
        }).join();
        return taken;
    };
    {
        const AutoLock lock(mutex);
        EXPECT_FALSE(tryElsewhere());
    }
    EXPECT_TRUE(tryElsewhere());
}

}  // namespace
}  // namespace NIVUR
