// Random work on four loops from eight threads, with promises checked as it goes. What each thread
// is asked to do follows from the seed; only how they meet does not. Much here has no lock on
// purpose: the order is the library's to give, and the thread sanitizer's to miss.

#include <nivur/nivur.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <thread>

namespace NIVUR {
namespace {

constexpr unsigned kLoops = 4;
constexpr unsigned kDrivers = 8;
constexpr int kOperations = 150;       // of each driver in a round
constexpr int kPings = 25;             // of each driver after a round
constexpr uint64_t kHangMs = 20000;    // without any progress
constexpr uint64_t kLateMs = 90;       // an idle loop looks around every 100 ms, woken or not
constexpr unsigned kOwnLoop = kLoops;  // the number of a loop that one driver makes for itself

// Loops that wait for each other do so for ever: a thread waits for loops from its level up.
constexpr unsigned kNoLevel = kLoops + 1;
thread_local unsigned level = kNoLevel;

// The first ones are tasks' as well as drivers'.
enum Kind {
    POST,
    WAIT,
    TIMER,
    DUMP,
    BUFFER,
    RING,
    EVENT,
    CANCEL,
    STOP,
    RESTART,
    OBJECTS,
    RESET,
    OWN
};
constexpr unsigned kKinds = OWN + 1;

uint64_t seed = 0;

void check(bool holds, const char* promise) {
    if (!holds) {
        std::fprintf(stderr, "stress: broken with seed %lu: %s\n", seed, promise);
        std::abort();
    }
}

/// The generator known as splitmix64.
class Random {
  public:
    explicit Random(uint64_t state) : _state(state) {}
    uint64_t next() {
        uint64_t z = _state += 0x9E3779B97F4A7C15u;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
        return z ^ (z >> 31);
    }
    unsigned below(unsigned end) { return static_cast<unsigned>(next() % end); }
    bool oneIn(unsigned n) { return below(n) == 0; }

  private:
    uint64_t _state;
};

/// What tasks act on and are cancelled by. Its place serves the next such object at once.
struct Object {
    unsigned generation = 0;          // of which every task knows its own
    std::atomic<int> ranAndThere{0};  // tasks that ran and are not deleted yet
    unsigned home = 0;                // the loop of all its tasks, or kLoops
    long timer = 0;                   // its only work, or 0
    bool live = false;
};

/// What became of a task.
struct Outcome {
    bool ran = false;
    bool deleted = false;
};

/// What a task is to do.
struct Plan {
    unsigned home;    // the number of its loop
    unsigned budget;  // how many operations it makes, and how many generations may follow it
    Object* object = nullptr;
    unsigned interval = 0;
    bool repeat = false;
    std::function<void()> body{};
    Outcome* outcome = nullptr;
};

class Stress {
  public:
    Stress() {
        for (unsigned i = 0; i < kDrivers; ++i) {
            _drivers[i].random = Random(seed * kDrivers + i);
            _drivers[i].name = std::to_string(i);
        }
    }

    void run(uint64_t seconds) {
        std::thread watchdog([this] { watch(); });
        const uint64_t end = SystemUtil::getCPUTime() + seconds * 1000;
        int rounds = 0;
        for (; rounds < 2 || SystemUtil::getCPUTime() < end; ++rounds) {
            round(rounds % 2 == 1);
        }
        _over = true;
        watchdog.join();
        std::printf("%d rounds, %lu tasks, %lu of them dropped,", rounds, _deleted.load(),
                    _dropped.load());
        constexpr const char* kNames[] = {"posts",
                                          "waits",
                                          "timers",
                                          "dumps",
                                          "buffers",
                                          "blocks",
                                          "events",
                                          "cancels",
                                          "stops",
                                          "restarts",
                                          "objects",
                                          "resets",
                                          "own loops and pools"};
        for (unsigned kind = 0; kind < kKinds; ++kind) {
            std::printf(" %lu %s,", _done[kind].load(), kNames[kind]);
        }
        const uint64_t pings = static_cast<uint64_t>(rounds) * kDrivers * kPings;
        std::printf(" %lu pings, %lu late (the machine was %lu times)\n", pings, _late.load(),
                    _stalls.load());
        check(_late <= 2 + _stalls + pings / 500, "a post wakes an idle loop");
    }

  private:
    class Task : public Runnable {
      public:
        Task(Stress& stress, Random& random, Plan plan)
            : _stress(stress),
              _plan(std::move(plan)),
              _random(random.next()),
              _generation(_plan.object == nullptr ? 0 : _plan.object->generation),
              _due(SystemUtil::getCPUTime() + _plan.interval) {
            _stress._there.fetch_add(1, std::memory_order_relaxed);
        }
        ~Task() override {
            check(_alive, "no task is deleted twice");
            _alive = false;
            if (_runs == 0) {
                check(_stress.storm() || _plan.object != nullptr || _plan.home == kOwnLoop,
                      "no task is dropped unless it is cancelled or its loop is stopped");
                count(_stress._dropped);
            } else if (_plan.object != nullptr) {
                _plan.object->ranAndThere.fetch_sub(1, std::memory_order_relaxed);
            }
            if (_plan.budget > 0 && _random.oneIn(4)) {
                _stress.act(_random, _plan.home, 0, nullptr);
            }
            if (_plan.outcome != nullptr) {
                _plan.outcome->deleted = true;
            }
            count(_stress._deleted);
            _stress._there.fetch_sub(1, std::memory_order_release);
        }
        void run() override {
            check(_alive, "no task runs that is deleted");
            check(level == kNoLevel || level == _plan.home, "tasks run on their loop's thread");
            level = _plan.home;
            check(++_runs == 1 || _plan.repeat, "no task runs twice");
            check(SystemUtil::getCPUTime() >= _due, "no timer runs early");
            _due += _plan.interval;
            if (_plan.object != nullptr) {
                check(_plan.object->generation == _generation, "no cancelled object's task starts");
                _plan.object->ranAndThere.fetch_add(_runs == 1, std::memory_order_relaxed);
            }
            if (_plan.body) {
                _plan.body();
            }
            for (unsigned i = 0; i < _plan.budget; ++i) {
                _stress.act(_random, _plan.home, _plan.budget - 1, _plan.object);
            }
            if (_plan.outcome != nullptr) {
                _plan.outcome->ran = true;
            }
        }
        void* getObject() override { return _plan.object; }
        std::string dump() override { return "task of loop " + std::to_string(_plan.home); }

      private:
        Stress& _stress;
        const Plan _plan;
        Random _random;
        const unsigned _generation;
        uint64_t _due;
        int _runs = 0;
        volatile bool _alive = true;
    };

    /// Hears of its driver's event, which that driver alone sends, and of one that all send.
    class Handler : public EventHandler {
      public:
        explicit Handler(Stress& stress) : _stress(stress) {}
        void onEvent(const Event& event, Parameter*) override {
            if (event.id() != "all") {
                ++ownCalls;
                return;
            }
            const unsigned call = _calls.fetch_add(1, std::memory_order_relaxed);
            _stress.toggle("all", *_stress._drivers[call % kDrivers].handler, call % 3 == 0);
        }
        int ownCalls = 0;

      private:
        Stress& _stress;
        std::atomic<unsigned> _calls{0};
    };

    struct Driver {
        std::string name;
        Random random{0};
        std::array<Object, 3> objects;
        std::unique_ptr<Handler> handler;
        bool registered = false;
    };

    static void count(std::atomic<uint64_t>& counter) {
        counter.fetch_add(1, std::memory_order_relaxed);
    }
    bool storm() const { return _storm.load(std::memory_order_relaxed); }

    void post(RunLoop& loop, Random& random, Plan plan, bool wait = false) {
        loop.postItem(new Task(*this, random, std::move(plan)), random.oneIn(3), wait);
    }

    long addTimer(RunLoop& loop, Random& random, Plan plan) {
        const unsigned interval = plan.interval = random.below(4);
        const bool repeat = plan.repeat;
        return loop.addTimer(new Task(*this, random, std::move(plan)), interval, repeat);
    }

    bool postAndWait(RunLoop& loop, Random& random, Plan plan) {
        Outcome outcome;
        plan.outcome = &outcome;
        const bool mustRun = !storm() || plan.home == kOwnLoop;
        post(loop, random, std::move(plan), true);
        check(outcome.deleted, "a task is gone when the post that waited for it returns");
        check(outcome.ran || !mustRun, "a post waits until the task has run");
        return outcome.ran;
    }

    /// An operation of a task, or of its destructor, of the loop `home`.
    void act(Random& random, unsigned home, unsigned budget, Object* object) {
        perform(static_cast<Kind>(random.below(STOP + 1)), random, home, budget, object);
    }

    void perform(Kind kind, Random& random, unsigned home, unsigned budget, Object* object) {
        const unsigned any = random.below(kLoops);
        const bool mayWait = any >= std::max(level, home);
        if ((kind == STOP || kind == RESTART) && !(storm() && mayWait)) {
            return;
        }
        // An object is cancelled on one loop after another: its tasks never post back.
        const bool bound = object != nullptr && (object->home < kLoops || any < home);
        const unsigned target = bound ? home : any;
        count(_done[kind]);
        if (kind == WAIT && mayWait) {
            postAndWait(_loops[any], random, {any, budget});
        } else if (kind == POST) {
            post(_loops[target], random, {target, budget, object});
        } else if (kind == TIMER) {
            addTimer(_loops[target], random, {target, budget, object});
        } else if (kind == DUMP) {
            _loops[any].dumpLoopInfo();
        } else if (kind == BUFFER) {
            passBuffer(random, _pool);
        } else if (kind == RING) {
            passBlock(random);
        } else if (kind == EVENT) {
            _center.sendEvent(Event("all"), nullptr);
        } else if (kind == CANCEL) {
            _loops[home % kLoops].cancelTasksForObject(object);
        } else if (kind == STOP || kind == RESTART) {
            _loops[any].stop();
            (void)(kind == RESTART && _loops[any].start());
        }
    }

    /// Two loops read one buffer, which returns from the one that is last.
    void passBuffer(Random& random, BufferPool& pool) {
        const unsigned size = 1 + random.below(300);
        const char tag = static_cast<char>(random.next());
        const SharedPtr<Buffer> buffer = pool.getPoolBuffer(size, nullptr);
        check(buffer->state() == BUFFER_STATE_IN_USE && buffer->setUsedSize(size),
              "a pool gives a buffer of the size asked for");
        std::memset(buffer->data(), tag, size);
        const auto read = [buffer, tag, size] {
            check(std::string(buffer->data(), buffer->usedSize()) == std::string(size, tag),
                  "a buffer has one holder at a time");
            buffer->checkBufferOverflow();
        };
        for (int i = 0; i < 2; ++i) {
            const unsigned target = random.below(kLoops);
            post(_loops[target], random, {target, 0, nullptr, 0, false, read});
        }
    }

    /// All blocks have one size, so that each comes out as it went in.
    void passBlock(Random& random) {
        std::string block(8, static_cast<char>(random.next()));
        if (random.oneIn(50)) {
            _ring.reset();
        } else if (random.oneIn(2)) {
            _ring.write(block.data(), 8);
        } else if (_ring.read(block.data(), 8) == RING_BUFFER_OK) {
            check(block == std::string(8, block[0]), "a ring hands out whole blocks");
        }
    }

    void drive(Driver& driver) {
        Random& random = driver.random;
        for (int i = 0; i < kOperations; ++i) {
            const Kind kind = static_cast<Kind>(random.below(kKinds));
            perform(kind, random, 0, random.below(4), nullptr);
            if (kind == OBJECTS) {
                for (Object& object : driver.objects) {
                    object.live ? retire(object, random) : make(object, random);
                }
            } else if (kind == RESET) {
                _loops[random.below(kLoops)].resetTimer(driver.objects[0].timer);
            } else if (kind == EVENT) {
                sendOwnEvent(driver);
            } else if (kind == OWN) {
                useOwnLoop(random);
                BufferPool pool(&_config, "own");  // ends before its buffers
                passBuffer(random, pool);
                passBuffer(random, pool);
            }
        }
        for (Object& object : driver.objects) {
            if (object.live) {
                retire(object, random);
            }
        }
    }

    /// Only in calm weather an object is let go by its timer's id: where a loop is stopped, that
    /// may be another's by then.
    void make(Object& object, Random& random) {
        object.live = true;
        object.home = random.oneIn(2) ? random.below(kLoops) : kLoops;
        object.timer = 0;
        if (object.home < kLoops && !storm()) {
            object.timer =
                addTimer(_loops[object.home], random, {object.home, 0, &object, 0, true});
            return;
        }
        for (unsigned i = random.below(8) + 1; i > 0; --i) {
            const unsigned target = object.home < kLoops ? object.home : random.below(kLoops);
            const Plan plan{target, random.below(3), &object, 0, random.oneIn(2)};
            if (random.oneIn(3)) {
                addTimer(_loops[target], random, plan);
            } else {
                post(_loops[target], random, plan);
            }
        }
    }

    void retire(Object& object, Random& random) {
        object.live = false;
        const auto finish = [&object] {
            check(object.ranAndThere.load(std::memory_order_relaxed) == 0,
                  "no task that ran is left of a cancelled object");
            ++object.generation;
        };
        if (object.timer != 0) {
            _loops[object.home].stopTimer(object.timer);
            return finish();
        }
        const auto cancelWithin = [&] {
            _loops[object.home].cancelTasksForObject(&object);
            finish();
        };
        const bool within = object.home < kLoops && random.oneIn(2);
        if (within && postAndWait(_loops[object.home], random,
                                  {object.home, 0, nullptr, 0, false, cancelWithin})) {
            return;
        }
        for (RunLoop& loop : _loops) {
            loop.cancelTasksForObject(&object);
        }
        finish();
    }

    void useOwnLoop(Random& random) {
        RunLoop own("own");
        addTimer(own, random, {kOwnLoop, 1, nullptr, 0, random.oneIn(2)});
        for (unsigned times = random.below(2); times < 2; ++times) {
            check(own.start(), "a loop can be started again");
            post(own, random, {kOwnLoop, 1});
            postAndWait(own, random, {kOwnLoop, 1});
            post(own, random, {kOwnLoop, 1});
            own.stop();
        }
    }

    void toggle(const std::string& name, Handler& handler, bool registers) {
        if (registers) {
            _center.registerEventHandler(name, &handler);
        } else {
            _center.unregisterEventHandler(name, &handler);
        }
    }

    void sendOwnEvent(Driver& driver) {
        driver.registered = !driver.registered;
        toggle(driver.name, *driver.handler, driver.registered);
        const int before = driver.handler->ownCalls;
        _center.sendEvent(Event(driver.name), nullptr);
        check(driver.handler->ownCalls - before == driver.registered,
              "registered handlers hear, others do not");
    }

    /// Wakes idle loops from outside, from another loop and by a timer.
    void ping(Driver& driver) {
        Random& random = driver.random;
        for (int i = 0; i < kPings; ++i) {
            for (unsigned pause = random.below(30); pause > 0; --pause) {
                std::this_thread::yield();
            }
            const unsigned first = random.below(kLoops);
            const unsigned second = random.below(kLoops);
            Semaphore done;
            const Plan notify{second, 0, nullptr, 0, false, [&] { done.notify(); }};
            const auto relay = [&] { post(_loops[second], random, notify); };
            const uint64_t begin = SystemUtil::getCPUTime();
            switch (random.below(3)) {
                case 0:
                    postAndWait(_loops[second], random, notify);
                    break;
                case 1:
                    post(_loops[first], random, {first, 0, nullptr, 0, false, relay});
                    break;
                default:
                    addTimer(_loops[second], random, notify);
            }
            check(done.wait(kHangMs) == 0, "every task that is posted starts");
            _late.fetch_add(SystemUtil::getCPUTime() - begin >= kLateMs, std::memory_order_relaxed);
        }
    }

    void atOnce(void (Stress::*body)(Driver&)) {
        std::vector<std::thread> threads;
        for (Driver& driver : _drivers) {
            threads.emplace_back([this, body, &driver] {
                level = 0;
                (this->*body)(driver);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    void restartAll() {
        for (RunLoop& loop : _loops) {
            loop.stop();
            check(loop.start(), "a stopped loop can be started");
        }
    }

    /// In a storm loops are stopped and started at any time.
    void round(bool inStorm) {
        restartAll();
        _storm = inStorm;
        for (Driver& driver : _drivers) {
            driver.handler = std::make_unique<Handler>(*this);
            driver.registered = false;
        }
        atOnce(&Stress::drive);
        while (_there.load(std::memory_order_acquire) != 0) {
            SystemUtil::sleep(1);
            for (RunLoop& loop : _loops) {  // timers of a stopped loop wait for its start
                (void)(inStorm && loop.start());
            }
        }
        _storm = false;
        restartAll();
        atOnce(&Stress::ping);
        checkNothingIsOut();
    }

    void checkNothingIsOut() {
        std::vector<SharedPtr<Buffer>> buffers;
        for (const unsigned size : {256, 256, 256, 256, 64, 64, 64, 64}) {
            buffers.push_back(_pool.getPoolBuffer(size, nullptr));
            check(buffers.back()->owner() != nullptr, "buffers come back to their pool");
        }
        _center.unregisterAllEventHandlers();
        for (Driver& driver : _drivers) {
            driver.handler.reset();
            _center.sendEvent(Event(driver.name), nullptr);
        }
        _center.sendEvent(Event("all"), nullptr);
    }

    /// Ends a program that hangs, with all that the loops can tell.
    void watch() {
        uint64_t last = 0;
        for (uint64_t since = SystemUtil::getCPUTime(); !_over;) {
            const uint64_t now = SystemUtil::getCPUTime();
            SystemUtil::sleep(10);
            _stalls += SystemUtil::getCPUTime() - now > kLateMs / 2;
            if (std::exchange(last, _deleted) != last) {
                since = now;
            } else if (now - since > kHangMs) {
                alarm(10);  // a dump may hang as well
                Log::setCB(
                    [](int, const char* fmt, va_list args) { std::vfprintf(stderr, fmt, args); });
                for (RunLoop& loop : _loops) {
                    loop.dumpLoopInfo();
                }
                check(false, "nothing hangs");
            }
        }
    }

    std::array<std::atomic<uint64_t>, kKinds> _done{};
    std::atomic<uint64_t> _dropped{0}, _deleted{0}, _there{0}, _late{0}, _stalls{0};
    std::atomic<bool> _storm{false}, _over{false};
    std::array<Driver, kDrivers> _drivers;
    const BufferPool_Config _config{{{64, 4}, {256, 4}}};
    BufferPool _pool{&_config, "shared"};
    RingBuffer _ring{100, "shared"};
    EventCenter _center;
    std::array<RunLoop, kLoops> _loops{RunLoop("0"), RunLoop("1"), RunLoop("2"), RunLoop("3")};
};

}  // namespace
}  // namespace NIVUR

/// stress [--seconds N] [--seed S]
int main(int argc, char** argv) {
    uint64_t seconds = 3;
    NIVUR::seed = std::random_device()();
    for (int i = 1; i + 1 < argc; i += 2) {
        (std::string(argv[i]) == "--seed" ? NIVUR::seed : seconds) =
            std::strtoull(argv[i + 1], nullptr, 10);
    }
    std::printf("stress: %lu seconds with seed %lu\n", seconds, NIVUR::seed);
    std::fflush(stdout);
    NIVUR::Stress().run(seconds);
}
