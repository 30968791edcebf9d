// Random work on four loops from eight threads, with checks of the library's promises. The seed
// determines what each thread does, but not how the threads interleave. Much of the data here is
// intentionally not locked: the library guarantees the order, and the thread sanitizer checks it.

#include <nivur/nivur.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <thread>

#include "basics.h"
#include "services.h"

namespace NIVUR {
namespace {

constexpr unsigned kLoops = 4, kDrivers = 8;
constexpr unsigned kOperations = 150, kPings = 100;  // of each driver in each round
constexpr uint64_t kHangMs = 20000;                  // without progress
constexpr uint64_t kLateMs = 1000;                   // from post to run on an idle loop

// Loops that wait for each other deadlock: a thread waits only for loops from its level up.
constexpr unsigned kOwnLoop = kLoops;  // the number of a loop that a driver makes for itself
constexpr unsigned kNoLevel = kLoops + 1;
thread_local unsigned level = kNoLevel;

/// An object that tasks act on and are cancelled by. Its memory is reused for the next object at
/// once.
struct Object {
    unsigned generation = 0;   // tasks store the generation of their object
    unsigned home = 0;         // the loop of all its tasks, or kLoops if they are on several
    std::atomic<int> here{0};  // tasks that ran and are not deleted yet

    void letGo() {
        check(here.load(std::memory_order_relaxed) == 0, "cancelled tasks that ran are gone");
        ++generation;
    }
};

/// What a task is to do.
struct Plan {
    unsigned home;    // the number of its loop
    unsigned budget;  // how many operations it makes, and how many generations of tasks follow
    Object* object = nullptr;
    std::function<void()> body{};
    bool repeat = false;
    unsigned interval = 0;
};

Counter made{}, dropped{}, deleted{}, late{}, stalls{};
std::atomic<bool> storm{false};  // loops may be stopped and started at any time
std::atomic<bool> listening{false}, over{false};

const BufferPool_Config config{{{64, 4}, {256, 4}}};
BufferPool sharedPool{&config, "shared"};
RingBuffer ring{100, "shared"};
EventCenter center;
BufferList many{{8, 130}};           // three words of the free set, all empty at times
std::vector<const Buffer*> inOrder;  // the buffers that it hands out to a single thread, in order

/// Handles its own event, which only its thread sends, and one that all threads send.
struct Driver : EventHandler {
    void onEvent(const Event& event, Parameter* /*parameter*/) override {
        check(listening, "no handler hears after it is unregistered");
        if (event.id() == name) {
            ++ownCalls;
        } else if (calls.fetch_add(1, std::memory_order_relaxed) % 3 == 0) {
            center.unregisterEventHandler(event.id(), this);
            center.registerEventHandler(event.id(), this);
        }
    }
    std::string name;
    Random random;
    Object object;
    int ownCalls = 0;
    std::atomic<unsigned> calls{0};
    std::array<SharedPtr<Buffer>, 40> held;
};

std::array<Driver, kDrivers> drivers;
std::array<RunLoop, kLoops> loops{RunLoop("0"), RunLoop("1"), RunLoop("2"), RunLoop("3")};

/// The origin of an operation: a task or its destructor, or a driver.
struct Actor {
    Random& random;
    unsigned home, budget;
    Object* object;
    Driver* driver;
    unsigned any = random.below(kLoops);
    bool mayWait = any >= std::max(level, home);
    // An object is cancelled on one loop after another: its tasks never post again.
    bool bound = object != nullptr && (object->home < kLoops || any < home);
    unsigned target = bound ? home : any;
};

void perform(const Actor& actor);

class Task : public Runnable {
  public:
    Task(Random& random, Plan plan)
        : _plan(std::move(plan)),
          _random(random() ^ 0x2545F491),
          _generation(_plan.object == nullptr ? 0 : _plan.object->generation),
          _due(SystemUtil::getCPUTime() + _plan.interval) {
        made.add();
    }
    ~Task() override {
        check(_alive, "no task is deleted twice");
        _alive = false;
        if (_runs == 0) {
            check(storm || _plan.object != nullptr || _plan.home == kOwnLoop, "calm tasks run");
            dropped.add();
        } else if (_plan.object != nullptr) {
            _plan.object->here.fetch_sub(1, std::memory_order_relaxed);
        }
        if (_plan.budget > 0 && _random.oneIn(4)) operate(0, nullptr);
        _plan.body = nullptr;  // deletes what it holds, which is counted as returned
        deleted.fetch_add(1, std::memory_order_release);
    }
    void run() override {
        check(_alive, "no task runs that is deleted");
        check(level == kNoLevel || level == _plan.home, "tasks run on their loop's thread");
        level = _plan.home;
        check(++_runs == 1 || _plan.repeat, "no task runs twice");
        check(SystemUtil::getCPUTime() >= _due, "no timer runs early");
        _due += _plan.interval;
        if (_plan.object != nullptr) {
            check(_plan.object->generation == _generation, "no cancelled task starts");
            _plan.object->here.fetch_add(_runs == 1, std::memory_order_relaxed);
        }
        if (_plan.body) _plan.body();
        for (unsigned i = 0; i < _plan.budget; ++i)
            operate(_plan.budget - 1, _plan.object);
    }
    void* getObject() override { return _plan.object; }
    std::string dump() override { return "task of loop " + std::to_string(_plan.home); }

  private:
    void operate(unsigned budget, Object* object) {
        perform({_random, _plan.home, budget, object, nullptr});
    }

    Plan _plan;
    Random _random;
    const unsigned _generation;
    uint64_t _due;
    int _runs = 0;
    volatile bool _alive = true;
};

void post(Random& random, Plan plan, bool wait = false) {
    RunLoop& loop = loops[plan.home];
    loop.postItem(new Task(random, std::move(plan)), random.oneIn(3), wait);
}

/// Returns true if the task has run.
bool wait(Random& random, Plan plan) {
    const auto ran = std::make_shared<bool>(false);
    plan.body = [ran, body = plan.body] {
        if (body) body();
        *ran = true;
    };
    post(random, std::move(plan), true);
    check(ran.use_count() == 1, "a task is gone when the post that waited for it returns");
    check(*ran || storm, "a post waits until the task has run");
    return *ran;
}

long addTimer(Random& random, Plan plan) {
    plan.interval = random.below(4);
    return loops[plan.home].addTimer(new Task(random, plan), plan.interval, plan.repeat);
}

void useHandler(Driver& driver) {
    driver.ownCalls = 0;
    center.registerEventHandler("all", &driver);
    center.registerEventHandler(driver.name, &driver);
    center.sendEvent(Event(driver.name), nullptr);
    center.unregisterEventHandler(driver.name, &driver);
    center.sendEvent(Event(driver.name), nullptr);
    check(driver.ownCalls == 1, "registered handlers hear, and no others");
}

/// Two loops read one buffer. The one that finishes last returns it.
void passBuffer(Random& random, BufferPool& pool) {
    const unsigned size = 1 + random.below(300);
    const SharedPtr<Buffer> buffer = pool.getPoolBuffer(size, nullptr);
    const std::string bytes(size, static_cast<char>(random()));
    check(buffer->setUsedSize(size), "a pool gives buffers of the size asked for");
    bytes.copy(buffer->data(), size);
    const auto read = [buffer, bytes] {
        const std::string found(buffer->data(), buffer->usedSize());
        check(found == bytes, "a buffer has one holder at a time");
        buffer->checkBufferOverflow();
    };
    for (int i = 0; i < 2; ++i)
        post(random, {random.below(kLoops), 0, nullptr, read});
}

void useMany(Driver& driver) {
    for (int i = 0; i < 20; ++i) {
        SharedPtr<Buffer>& each = driver.held[driver.random.below(40)];
        const bool out = !!std::exchange(each, SharedPtr<Buffer>());
        if (out || !(each = many.getBuffer(0))) continue;
        check(each->usedSize() == 0, "a buffer comes empty, and to one holder");
        each->setUsedSize(1);
    }
}

void allAreBack() {
    std::vector<SharedPtr<Buffer>> all;
    for (Driver& driver : drivers)
        driver.held = {};
    check(many.freeCount() == many.bufferCount(), "what came back is free");
    for (const Buffer* const buffer : inOrder)
        check(all.emplace_back(many.getBuffer(0)).get() == buffer, "the first free one is lent");
}

/// Destroys the list while two loops drop buffers of it.
void endWithBuffersOut(Random& random) {
    BufferList list({8, 130});
    for (int i = 0; i < 2; ++i) {
        std::vector<SharedPtr<Buffer>> held(random.below(66));
        for (SharedPtr<Buffer>& each : held)
            each = list.getBuffer(0);
        post(random, {random.below(kLoops), 0, nullptr, [held] {}});
    }
}

/// Passes blocks of one size through the ring, so that each is read as it was written.
void passBlocks(Random& random) {
    for (int i = 0; i < 20; ++i) {
        std::string block(8, static_cast<char>(random()));
        if (random.oneIn(50)) {
            ring.reset();
        } else if (random.oneIn(2)) {
            ring.write(block.data(), 8);
        } else if (ring.read(block.data(), 8) == RING_BUFFER_OK) {
            check(block == std::string(8, block[0]), "a ring hands out whole blocks");
        }
        const unsigned stored = ring.getUnreadSize();
        check(stored <= 96 && stored % 8 == 0, "a ring holds whole blocks");
    }
}

/// Posts tasks of an object to one loop or to all, and cancels them from outside or from one of
/// them.
void useObject(Object& object, Random& random) {
    const unsigned home = random.below(kLoops);
    object.home = random.oneIn(2) ? home : kLoops;
    if (!storm && random.oneIn(4)) {  // in a storm a stop may drop the timer, and its id be reused
        const long timer = addTimer(random, {home, 0, &object, {}, true});
        wait(random, {home, 0});
        loops[home].stopTimer(timer);
        return object.letGo();
    }
    for (unsigned i = random.below(8); i > 0; --i) {
        const unsigned target = object.home < kLoops ? home : random.below(kLoops);
        post(random, {target, random.below(3), &object});
        addTimer(random, {target, 1, &object, {}, random.oneIn(2)});
    }
    const auto cancelWithin = [&] {
        loops[home].cancelTasksForObject(&object);
        object.letGo();
    };
    const bool within = object.home < kLoops && random.oneIn(2);
    if (within && wait(random, {home, 0, nullptr, cancelWithin})) return;
    for (RunLoop& loop : loops)
        loop.cancelTasksForObject(&object);
    object.letGo();
}

/// Sends bytes to a loop that watches for them. The descriptors are closed as soon as the watch is
/// removed, and their numbers are reused at once.
void useWatch(Random& random) {
    std::array<int, 2> ends{};
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()) == 0, "pairs are had");
    RunLoop& loop = loops[random.below(kLoops)];
    std::atomic<bool> removed{false};
    std::atomic<unsigned> taken{0};
    const auto take = [&] {
        check(!removed, "no removed watch runs");
        char byte = 0;
        taken += read(ends[0], &byte, 1) == 1;
    };
    const long id = loop.addWatch(ends[0], RunLoop::READABLE, makeRunnable(take, &taken));
    check(id != 0, "a socket can be watched");
    const unsigned sent = random.below(4);
    for (unsigned i = 0; i < sent; ++i)
        check(write(ends[1], "x", 1) == 1, "a byte can be sent");
    while (!storm && taken < sent)  // also if the loop is just falling asleep
        std::this_thread::yield();
    random.oneIn(2) ? loop.removeWatch(id) : loop.cancelTasksForObject(&taken);
    removed = true;
    close(ends[0]);
    close(ends[1]);
}

/// Destroys the loop as soon as its task has signalled, while the post may still be returning.
void endAtOnce(Random& random) {
    auto own = std::make_unique<RunLoop>("ends at once");
    own->addTimer(makeRunnable([] {}), 1, true);  // wakes the loop
    own->start();
    Semaphore signalled;
    std::thread poster([&, own = own.get(), pause = random.below(3000), urgent = random.oneIn(2)] {
        const uint64_t begin = SystemUtil::getCPUTimeInMicroseconds();
        while (SystemUtil::getCPUTimeInMicroseconds() - begin < pause) {
        }
        own->postItem(makeRunnable([&] { signalled.notify(); }), urgent, false);
    });
    signalled.wait();
    own.reset();
    poster.join();
}

/// Destroys the loop and the pool while tasks are queued and buffers are in use.
void useOwn(Random& random) {
    if (random.oneIn(2)) return endAtOnce(random);
    RunLoop own("own");
    const auto task = [&random] { return new Task(random, {kOwnLoop, 1, nullptr, {}, true}); };
    own.addTimer(task(), random.below(3), true);
    for (int times = 0; times < 2; ++times) {
        check(own.start(), "a loop can be started again");
        for (int i = 0; i < 3; ++i)
            own.postItem(task(), random.oneIn(2), i == 1);
        own.stop();
    }
    BufferPool pool(&config, "own");
    passBuffer(random, pool);
    endWithBuffersOut(random);
}

constexpr unsigned kTasksOperations = 10;

// clang-format off
struct Operation {
    const char* name;
    void (*perform)(const Actor& actor);
    Counter done{};
} operations[] = {
    {"posts", [](const Actor& a) { post(a.random, {a.target, a.budget, a.object}); }},
    {"waits", [](const Actor& a) { (void)(a.mayWait && wait(a.random, {a.any, a.budget})); }},
    {"timers", [](const Actor& a) { addTimer(a.random, {a.target, a.budget, a.object}); }},
    {"resets", [](const Actor& a) { loops[a.any].resetTimer(addTimer(a.random, {a.any, 0})); }},
    {"dumps", [](const Actor& a) { loops[a.any].dumpLoopInfo(); }},
    {"cancels", [](const Actor& a) { loops[a.home % kLoops].cancelTasksForObject(a.object); }},
    {"buffers", [](const Actor& a) { passBuffer(a.random, sharedPool); }},
    {"blocks", [](const Actor& a) { passBlocks(a.random); }},
    {"events", [](const Actor&) { center.sendEvent(Event("all"), nullptr); }},
    {"stops", [](const Actor& a) { if (storm && a.mayWait) loops[a.any].stop(); }},
    // By drivers only:
    {"starts", [](const Actor& a) { if (storm) loops[a.any].start(); }},
    {"objects", [](const Actor& a) { useObject(a.driver->object, a.random); }},
    {"handlers", [](const Actor& a) { useHandler(*a.driver); }},
    {"watches", [](const Actor& a) { useWatch(a.random); }},
    {"own loops", [](const Actor& a) { useOwn(a.random); }},
    {"lists", [](const Actor& a) { useMany(*a.driver); }},
    {"services", [](const Actor& a) { useServices(std::string(1 + a.random.below(100), 'b')); }},
};
// clang-format on

void perform(const Actor& actor) {
    Operation& operation = operations[actor.random.below(
        actor.driver == nullptr ? kTasksOperations : unsigned{std::size(operations)})];
    operation.perform(actor);
    operation.done.add();
}

void drive(Driver& driver) {
    level = 0;
    for (unsigned i = 0; i < kOperations; ++i)
        perform({driver.random, 0, driver.random.below(4), nullptr, &driver});
}

/// Wakes idle loops from outside, by a timer or from another loop.
void ping(Driver& driver) {
    level = 0;
    Random& random = driver.random;
    for (unsigned i = 0; i < kPings; ++i) {
        for (volatile unsigned pause = random.below(3000); pause > 0;)
            pause = pause - 1;
        const unsigned first = random.below(kLoops), second = random.below(kLoops);
        std::atomic<bool> arrived{false};
        const Plan notify{second, 0, nullptr, [&] { arrived = true; }};
        const uint64_t begin = SystemUtil::getCPUTime();
        random.oneIn(3)   ? (void)addTimer(random, notify)
        : random.oneIn(2) ? post(random, {first, 0, nullptr, [&] { post(random, notify); }})
                          : (void)wait(random, notify);
        while (!arrived)
            std::this_thread::yield();
        late.add(SystemUtil::getCPUTime() - begin >= kLateMs);
    }
}

void atOnce(void (*body)(Driver&)) {
    for (RunLoop& loop : loops) {
        loop.stop();
        check(loop.start(), "a stopped loop can be started");
    }
    std::vector<std::thread> threads;
    for (Driver& driver : drivers)
        threads.emplace_back(body, std::ref(driver));
    for (std::thread& thread : threads)
        thread.join();
}

void round(bool inStorm) {
    storm = inStorm;
    listening = true;
    atOnce(drive);
    while (deleted.load(std::memory_order_acquire) != made) {
        SystemUtil::sleep(1);
        for (RunLoop& loop : loops)
            (void)(storm && loop.start());  // for the timers of a stopped loop
    }
    center.unregisterAllEventHandlers();
    listening = false;
    center.sendEvent(Event("all"), nullptr);
    std::vector<SharedPtr<Buffer>> buffers;
    for (const unsigned size : {256U, 256U, 256U, 256U, 64U, 64U, 64U, 64U}) {
        buffers.push_back(sharedPool.getPoolBuffer(size, nullptr));
        check(buffers.back()->owner() != nullptr, "buffers come back to their pool");
    }
    allAreBack();
    storm = false;
    atOnce(ping);
}

/// Ends the program if it hangs, and dumps all loops.
void watch() {
    uint64_t last = 0;
    for (uint64_t since = SystemUtil::getCPUTime(); !over;) {
        const uint64_t now = SystemUtil::getCPUTime();
        SystemUtil::sleep(10);
        stalls.add(SystemUtil::getCPUTime() - now > kLateMs / 4);
        if (std::exchange(last, deleted) != last) {
            since = now;
        } else if (now - since > kHangMs) {
            alarm(10);  // a dump may hang, too
            Log::setCB([](int, const char* fmt, va_list args) { std::vprintf(fmt, args); });
            for (RunLoop& loop : loops)
                loop.dumpLoopInfo();
            check(false, "nothing hangs");
        }
    }
}

/// Adds more timers to each loop than a round ever leaves, so that its queues have their final
/// capacity.
void fillOnce() {
    for (RunLoop& loop : loops) {
        for (int timers = 0; timers < 1 << 14; ++timers)
            loop.addTimer(makeRunnable([] {}), 0, false);
        loop.start();
        loop.postItem(makeRunnable([] {}), false, true);
    }
}

void run(uint64_t seconds, bool inspected) {
    for (Driver& driver : drivers) {
        const auto number = static_cast<unsigned>(&driver - drivers.data());
        driver.name = std::to_string(number);
        driver.random = Random(static_cast<unsigned>(seed) * kDrivers + number);
    }
    std::vector<SharedPtr<Buffer>> all;
    while (const SharedPtr<Buffer> buffer = many.getBuffer(0))
        inOrder.push_back(all.emplace_back(buffer).get());
    all.clear();
    std::thread watchdog(watch);
    const uint64_t end = SystemUtil::getCPUTime() + seconds * 1000;
    uint64_t rounds = 0;
    if (inspected) fillOnce();
    for (; rounds < 2 || SystemUtil::getCPUTime() < end; ++rounds) {
        round(rounds % 2 == 1);
        for (RunLoop& loop : loops)
            loop.stop();
        if (inspected) pauseForInspection();
    }
    over = true;
    watchdog.join();
    std::printf("%" PRIu64 " rounds, %" PRIu64 " tasks, %" PRIu64 " dropped, %" PRIu64
                " late, %" PRIu64 " stalls\n",
                rounds, deleted.load(), dropped.load(), late.load(), stalls.load());
    for (const Operation& each : operations)
        std::printf("%" PRIu64 " %s\n", each.done.load(), each.name);
    check(late <= 2 + stalls, "a post wakes an idle loop");
}

}  // namespace
}  // namespace NIVUR

/// stress SECONDS SEED [inspected]
int main(int argc, char** argv) {
    NIVUR::seed = std::strtoul(argv[2], nullptr, 10);
    NIVUR::run(std::strtoul(argv[1], nullptr, 10), argc > 3);
}
