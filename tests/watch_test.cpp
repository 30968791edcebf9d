#include <fcntl.h>
#include <gtest/gtest.h>
#include <nivur/nivur.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "support/latch.h"
#include "support/log_capture.h"

namespace NIVUR {
namespace {

/// Two connected descriptors, closed by the destructor; ends[0] is the watched one.
struct Ends {
    Ends() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0); }
    explicit Ends(bool readEnd) {
        EXPECT_EQ(pipe2(ends.data(), O_NONBLOCK), 0);
        if (!readEnd) std::swap(ends[0], ends[1]);
    }
    Ends(const Ends&) = delete;
    Ends& operator=(const Ends&) = delete;
    ~Ends() { closeEnd(0), closeEnd(1); }
    void closeEnd(size_t i) { close(std::exchange(ends[i], -1)); }
    void send() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    bool take() const {
        char byte = 0;
        return read(ends[0], &byte, 1) == 1;
    }
    void fill() const {
        const std::string block(4096, 'x');
        while (write(ends[0], block.data(), block.size()) > 0) {
        }
    }
    std::array<int, 2> ends{-1, -1};
};

const auto fail = [] { ADD_FAILURE(); };

class WatchTest : public testing::Test {
  protected:
    void TearDown() override { loop.stop(); }

    template <class Function>
    long watch(int descriptor, Function function, void* object = nullptr,
               RunLoop::Readiness kind = RunLoop::READABLE) {
        return loop.addWatch(descriptor, kind, makeRunnable(std::move(function), object));
    }
    template <class Function>
    long watchRoom(int descriptor, Function function, void* object = nullptr) {
        return watch(descriptor, std::move(function), object, RunLoop::WRITABLE);
    }
    template <class Function>
    void call(Function function) {
        loop.postItem(makeRunnable(std::move(function)), false, true);
    }
    /// Returns when the loop has asked for ready descriptors twice.
    void poll() {
        for (int pass = 0; pass < 40; ++pass)
            call([] {});
    }

    LogCapture log;
    RunLoop loop{"loop"};
};

TEST_F(WatchTest, RunAsTheStateOfTheirDescriptorSays) {
    const struct {
        const char* state;
        std::function<void(std::unique_ptr<Ends>&)> make;
        bool readable, writable;
    } rows[] = {
        {"fresh", [](auto& e) { e.reset(new Ends); }, false, true},
        {"data", [](auto& e) { e.reset(new Ends), e->send(); }, true, true},
        {"full", [](auto& e) { e.reset(new Ends), e->fill(); }, false, false},
        {"half-close", [](auto& e) { e.reset(new Ends), e->fill(), shutdown(e->ends[1], SHUT_WR); },
         true, false},
        {"end", [](auto& e) { e.reset(new Ends), e->fill(), e->closeEnd(1); }, true, true},
        {"no writer", [](auto& e) { e.reset(new Ends(true)), e->closeEnd(1); }, true, true},
        {"error", [](auto& e) { e.reset(new Ends(false)), e->fill(), e->closeEnd(1); }, true, true},
    };
    ASSERT_TRUE(loop.start());
    for (const auto& row : rows) {
        std::unique_ptr<Ends> ends;
        row.make(ends);
        std::atomic<int> readsOfOne{0}, reads{0}, writes{0};
        const int descriptor = ends->ends[0];
        const long alone = watch(descriptor, [&] { ++readsOfOne; });
        poll();
        const long reading = watch(descriptor, [&] { ++reads; });
        const long writing = watchRoom(descriptor, [&] { ++writes; });
        poll();
        for (const long id : {alone, reading, writing, 0L, writing})
            loop.removeWatch(id);
        const int after = reads + writes + readsOfOne;
        EXPECT_EQ(readsOfOne > 1, row.readable) << row.state;
        EXPECT_EQ(reads > 1, row.readable) << row.state;
        EXPECT_EQ(writes > 1, row.writable) << row.state;
        poll();
        EXPECT_EQ(reads + writes + readsOfOne, after) << row.state;
    }
}

TEST_F(WatchTest, RunOnceAPassInTheOrderOfAddingBetweenTimersAndTheTask) {
    Ends first, second;
    std::string trace;
    const auto word = [&](const char* text) { return [&trace, text] { trace += text; }; };
    watchRoom(second.ends[0], word("1"));
    watchRoom(first.ends[0], word("2"));
    watch(second.ends[0], word("3"));
    watch(first.ends[0], word("4"));
    watch(second.ends[0], word("5"));
    first.send(), second.send();
    ASSERT_TRUE(loop.start());
    call([&] {
        loop.addTimer(makeRunnable(word("t")), 0, true);
        for (int i = 0; i < 40; ++i)
            loop.postItem(makeRunnable(word("p")), false, false);
        SystemUtil::sleep(2);
        trace.clear();
    });
    poll();
    loop.stop();
    int passes = 0, withWatches = 0;
    for (size_t begin = 0, end = 0; (end = trace.find('p', begin)) != std::string::npos; ++passes) {
        const std::string pass = trace.substr(begin, end - begin);
        EXPECT_TRUE(pass == "t" || pass == "t12345") << pass;
        withWatches += pass != "t";
        begin = end + 1;
    }
    EXPECT_EQ(passes, 40);
    EXPECT_GE(withWatches, 2);
}

TEST_F(WatchTest, TasksOfOnePassMayRemoveThemselvesEachOtherAndTheLoop) {
    const auto token = std::make_shared<int>();
    Ends ends;
    ends.send();
    const int descriptor = ends.ends[0];
    int object = 0;
    std::array<long, 4> ids{};
    std::atomic<int> runs{0};
    ids[0] = watch(descriptor, [&, token] {
        for (const long id : ids)
            loop.removeWatch(id);
        EXPECT_EQ(token.use_count(), 3);  // held by this task and by that of the object
        loop.cancelTasksForObject(&object);
        EXPECT_EQ(token.use_count(), 2);
        loop.dumpLoopInfo();  // shows the running watch
        ++runs;
    });
    ids[1] = watch(descriptor, [token] { fail(); });
    ids[2] = watchRoom(descriptor, [token] { fail(); });
    watch(
        descriptor, [token] { fail(); }, &object);
    ASSERT_TRUE(loop.start());
    poll();
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(token.use_count(), 1);
    EXPECT_NE(log.take().at(0).find("\r _watches.size: 1\r _watches : \r\t"), std::string::npos);

    watch(descriptor, [token] {});
    loop.addTimer(makeRunnable([token] {}), 3600 * 1000, false);
    watch(descriptor, [&, token] { ++runs, loop.stop(); });
    while (runs == 1)
        std::this_thread::yield();
    loop.stop();
    EXPECT_EQ(runs, 2);
    EXPECT_EQ(token.use_count(), 1);  // dropped, as timers are
    log.take();
    loop.dumpLoopInfo();
    EXPECT_EQ(log.take().at(0).find("_watches"), std::string::npos);
    const long kept = watch(descriptor, [token] {});  // until the stopped loop is destroyed
    EXPECT_GT(kept, ids[2]);
    loop.stop();
    EXPECT_EQ(token.use_count(), 2);
}

TEST_F(WatchTest, WhatRemainsOfADescriptorsWatchesKeepsItsReadinessAlone) {
    Ends ends;
    std::atomic<int> reads{0}, writes{0};
    ASSERT_TRUE(loop.start());
    const long older = watch(ends.ends[0], [] {});
    const long writing = watch(
        ends.ends[0], [&] { ++writes; }, nullptr, RunLoop::WRITABLE);
    const long newest = watch(ends.ends[0], [&] { ++reads; });
    loop.removeWatch(older);
    loop.removeWatch(writing);
    writes = 0;
    poll();
    EXPECT_EQ(reads + writes, 0);
    ends.send();
    poll();
    EXPECT_GT(reads, 0);
    Ends other;
    ASSERT_EQ(dup2(other.ends[0], ends.ends[0]), ends.ends[0]);  // replaces the watched file
    const long renewed = watch(ends.ends[0], [&] { ++writes; });
    EXPECT_NE(renewed, 0);
    other.send();
    poll();
    EXPECT_GT(writes, 0);
    loop.removeWatch(newest), loop.removeWatch(renewed);
}

// As when the task of a connection's watch closes the connection and drops its last reference.
TEST_F(WatchTest, DestructorOfAWatchsTaskMayRemoveTheNextWatch) {
    for (const bool byCancel : {false, true}) {
        Ends ends;
        ends.send();
        long first = 0, second = 0;
        const auto remove = [&] {
            byCancel ? loop.cancelTasksForObject(&ends) : loop.removeWatch(second);
        };
        std::shared_ptr<void> last(nullptr, [&](void*) { remove(); });
        first = watch(ends.ends[0], [&, held = std::move(last)] { loop.removeWatch(first); });
        second = watchRoom(ends.ends[0], fail, &ends);
        ASSERT_TRUE(loop.start());
        poll();
        loop.stop();
    }
}

// Another watch keeps the descriptor registered.
TEST_F(WatchTest, NewWatchDoesNotRunOnWhatWasFetchedForAnOldOne) {
    Ends ends;
    watch(ends.ends[0], [] {});
    ASSERT_TRUE(loop.start());
    std::atomic<int> wrong{0};
    const uint64_t end = SystemUtil::getCPUTime() + 500;
    for (int rounds = 0; SystemUtil::getCPUTime() < end; ++rounds) {
        const long old = watchRoom(ends.ends[0], [] {});
        for (volatile int pause = rounds % 64 * 50; pause > 0;)
            pause = pause - 1;
        loop.removeWatch(old);
        ends.fill();
        const long fresh = watchRoom(ends.ends[0], [&] { ++wrong; });
        poll();
        loop.removeWatch(fresh);
        std::array<char, 65536> taken{};
        while (read(ends.ends[1], taken.data(), taken.size()) > 0) {
        }
    }
    EXPECT_EQ(wrong, 0);
}

TEST_F(WatchTest, WhatCannotBeWatchedIsRefused) {
    const auto token = std::make_shared<int>();
    const int file = open("/proc/self/exe", O_RDONLY);
    const int closed = dup2(file, 700);
    close(closed);
    rlimit normal{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &normal), 0);
    Ends ends;
    const auto refuse = [&](int descriptor, int error) {
        EXPECT_EQ(watch(descriptor, [token] {}), 0);
        EXPECT_EQ(token.use_count(), 1);
        EXPECT_EQ(log.take(), Lines{"5 cannot watch descriptor " + std::to_string(descriptor) +
                                    ": err=" + std::to_string(error)});
    };
    refuse(-1, EBADF);  // first: a sanitizer needs descriptors to check types that it has not seen
    for (const rlim_t spare : {0U, 1U}) {  // fewer than the two that the loop needs
        const int next = dup(file);
        close(next);
        const rlimit limit{static_cast<rlim_t>(next) + spare, normal.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
        refuse(ends.ends[0], EMFILE);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &normal), 0);
        EXPECT_EQ(dup(file), next) << "no descriptor is kept";
        close(next);
    }
    for (int times = 0; times < 2; ++times) {
        refuse(-1, EBADF);
        refuse(closed, EBADF);
        refuse(file, EPERM);
        EXPECT_NE(watch(ends.ends[0], [] {}), 0);
    }
    close(file);
    EXPECT_DEATH(loop.addWatch(0, RunLoop::READABLE, nullptr),
                 "src/run_loop.cpp:.*Assertion `task' failed");
}

TEST_F(WatchTest, NeitherTasksNorReadyDescriptorsStarveTheOthers) {
    Ends ends;
    ends.send();
    int passes = 0, longest = 0, sinceWatch = 0, watches = 0, timers = 0;
    std::function<void()> again;
    Latch done;
    again = [&] {
        longest = std::max(longest, ++sinceWatch);
        if (++passes == 1000) return done.count();
        loop.postItem(makeRunnable([&] { again(); }), passes % 2 == 0, false);
    };
    watch(ends.ends[0], [&] { ++watches, sinceWatch = 0; });
    loop.addTimer(makeRunnable([&] { ++timers; }), 0, true);
    ASSERT_TRUE(loop.start());
    loop.postItem(makeRunnable([&] { again(); }), false, false);
    done.wait();
    loop.stop();
    EXPECT_LE(longest, 16);
    EXPECT_GE(watches, 1000 / 17);
    EXPECT_GE(timers, 1000);
}

TEST_F(WatchTest, ThousandsOfDescriptorsRunExactlyWhenTheyAreReady) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 5000);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    const size_t count = static_cast<size_t>(limit.rlim_cur) - 500;
    ASSERT_GT(count, 1024U);
    std::vector<int> descriptors, runs(count), order;
    RunLoop other("other");
    std::atomic<int> ofOther{0};
    for (size_t i = 0; i < count; ++i) {
        descriptors.push_back(eventfd(0, EFD_NONBLOCK));
        const long id = watch(descriptors[i], [&, i] {
            eventfd_t value = 0;
            eventfd_read(descriptors[i], &value);
            ++runs[i];
            order.push_back(static_cast<int>(i));
        });
        ASSERT_NE(id, 0);
    }
    other.addWatch(descriptors[7], RunLoop::WRITABLE, makeRunnable([&] { ++ofOther; }));
    ASSERT_TRUE(loop.start());
    ASSERT_TRUE(other.start());
    std::minstd_rand random(4711);
    for (const size_t ready : {size_t{1}, size_t{200}, count}) {
        std::vector<int> expected = runs;
        call([&] {  // so that all are ready when the loop asks
            order.clear();
            for (size_t i = 0; i < ready; ++i) {
                const size_t chosen = ready == count ? i : random() % count;
                expected[chosen] = runs[chosen] + 1;
                eventfd_write(descriptors[chosen], 1);
            }
        });
        bool all = false;
        for (int asked = 0; asked < 100 && !all; ++asked) {
            poll();
            call([&] { all = runs == expected; });
        }
        EXPECT_TRUE(all);
        const bool inOrder = std::is_sorted(order.begin(), order.end());
        EXPECT_TRUE(inOrder || ready == count);
    }
    while (ofOther < 3)
        std::this_thread::yield();
    other.stop();
    loop.stop();
    for (const int descriptor : descriptors)
        close(descriptor);
}

// Ends watches in each possible way while the descriptor becomes ready and its number is at once
// reused for the next watch. The first watches are added while a loop without watches falls asleep.
TEST_F(WatchTest, NothingOfAWatchRunsOnceItIsRemovedHoweverThatMeetsReadiness) {
    const auto living = std::make_shared<int>();
    std::minstd_rand random(4711);
    const uint64_t end = SystemUtil::getCPUTime() + 1000;
    std::atomic<int> rounds{0}, total{0};
    for (; SystemUtil::getCPUTime() < end || rounds <= 10; ++rounds) {
        auto own = std::make_unique<RunLoop>("own");
        own->start();
        for (int times = 0; times < 8; ++times) {
            auto ends = std::make_unique<Ends>();
            std::atomic<bool> removed{false};
            std::atomic<int> bytes{0};
            int object = 0;
            const auto task = [&, living, ends = ends.get()] {
                EXPECT_FALSE(removed);
                bytes += ends->take();
                ++total;
            };
            const long id =
                own->addWatch(ends->ends[0], RunLoop::READABLE, makeRunnable(task, &object));
            const auto sent = static_cast<int>(random() % 3);
            const auto way = random() % 8;
            std::thread writer([&, pause = random() % 2000] {
                for (volatile auto left = pause; left > 0;)
                    left = left - 1;
                for (int i = 0; i < sent; ++i)
                    ends->send();
            });
            while (way < 2 && bytes < sent)  // all bytes arrive
                std::this_thread::yield();
            way == 2   ? own->cancelTasksForObject(&object)
            : way == 3 ? own->stop()
            : way == 4 ? own.reset()
                       : own->removeWatch(id);
            removed = true;
            EXPECT_EQ(living.use_count(), 2) << "the task is gone";
            writer.join();
            ends.reset();
            if (way == 3) own->start();
            if (way == 4) break;
        }
    }
    EXPECT_GT(total, 10) << rounds;
}

TEST_F(WatchTest, LoopThatHasNothingToDoDoesNotWake) {
    for (const bool watching : {false, true}) {
        Ends ends;
        ASSERT_TRUE(loop.start());
        if (watching) watch(ends.ends[0], fail);
        loop.addTimer(makeRunnable(fail), 3600 * 1000, true);
        const clock_t used = clock();  // by a loop to which nothing was posted yet
        SystemUtil::sleep(300);
        EXPECT_LT(clock() - used, CLOCKS_PER_SEC / 30);
        const auto switches = [this] {
            rusage usage{};
            call([&] { getrusage(RUSAGE_THREAD, &usage); });
            return usage.ru_nvcsw;
        };
        poll();
        const long before = switches();
        SystemUtil::sleep(1000);             // the time in which wake-ups are counted
        EXPECT_LE(switches() - before, 3L);  // the measurement itself
        loop.stop();
    }
}

}  // namespace
}  // namespace NIVUR
