#include <gtest/gtest.h>
#include <nivur/ifaddrs.h>
#include <nivur/nivur.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <thread>

#include "support/fault_injector.h"
#include "support/log_capture.h"

namespace NIVUR {
namespace {

const char* const kLocal = "127.0.0.1";
const std::string kLong = "text that is too long for a string's own room";

ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

std::atomic<int> living{0}, runs{0}, events{0};
std::atomic<RunLoop*> called{nullptr};  // by whatever is deleted: it must not have its lock

struct Counted : BaseBufferParam, ParameterValue, Runnable, EventHandler {
    Counted() { ++living; }
    ~Counted() override {
        --living;
        if (RunLoop* const loop = called) loop->resetTimer(0);
    }
    void run() override { ++runs; }
    std::string dump() override { return kLong; }
    void onEvent(const Event& /*event*/, Parameter* /*parameter*/) override { ++events; }
};

Dictionary everyType() {
    Dictionary all;
    all.setInteger("integer", 1);
    all.setString("string", kLong);
    all.setDecimal("decimal", 0.5L);
    all.setBoolean("boolean", true);
    all.setObject("object", all);
    all.setIntegerArray("integers", {1, 2});
    all.setStringArray("strings", {kLong});
    all.setDecimalArray("decimals", {0.5L});
    all.setBooleanArray("booleans", {true, false});
    all.setObjectArray("objects", {all});
    return all;
}

struct World {
    World() {
        const bool made = loop.start() && udp.create(kLocal, 0) && client.create(kLocal, 0) &&
                          listener.create(kLocal, 0) && listener.listen(1) &&
                          client.connect(kLocal, listener.port());
        accepted.reset(made ? listener.accept() : nullptr);
        center.registerEventHandler("x", &first);
        called = &loop;
    }
    ~World() { called = nullptr; }
    /// What an operation changes wholly or not at all.
    std::string state() {
        events = 0;
        center.sendEvent(Event("x"), nullptr);
        return Serialization::serialize(record) + std::to_string(events) + ' ' +
               std::to_string(bytes.size() * 100 + size_t{10} * list.freeCount() +
                              parameter.size());
    }
    SharedPtr<Buffer> held;
    Counted first, second;
    BufferList list{{64, 3}};
    EventCenter center;
    Parameter parameter;
    Dictionary record = everyType();
    std::vector<uint8_t> bytes;
    UDPSocket udp;
    ServerSocket listener;
    ClientSocket client;
    std::unique_ptr<ClientSocket> accepted;
    Semaphore semaphore;
    RunLoop loop{"loop"};
};

// 1: listed, 0: null, -1: left alone.
int listInterfaces() {
    ifaddrs none{};
    ifaddrs* list = &none;
    const bool listed = getifaddrs(&list) == 0;
    if (list != &none) freeifaddrs(list);
    return list == &none ? -1 : listed ? 1 : 0;
}

bool startThread() {
    Thread thread;
    Runnable* const task = makeRunnable([] { SystemUtil::sleep(20); });
    const bool started = thread.start(task, "named", Thread::THREAD_PRIORITY_LOW);
    thread.waitForStop();
    thread.waitForStop();  // makes good for the first one if its join failed
    return started && !thread.isStarted();
}

bool startLoop() {
    RunLoop loop("loop");
    loop.addTimer(new Counted, 0, true);
    if (!loop.start()) return false;
    const int before = runs;
    loop.postItem(new Counted, false, true);
    return runs > before;
}

const char* either(bool done, bool none = false) {
    return done ? "done" : none ? "none" : "half done";
}

const std::string kJson = Serialization::serialize(everyType());

// "done", or "none" where an operation reports exhausted memory by its result. The tasks allocate
// nothing: that would end the process.
const std::pair<const char*, const char* (*)(World&)> kScenarios[] = {
    {"buffer", [](World&) { return either(!!BufferPool::getBuffer(64, new Counted), true); }},
    {"buffers of a list",
     [](World& w) {
         const auto one = w.list.getBuffer(1), two = w.list.getBuffer(1);
         one->parameter().set("key", new Counted);
         return either(one && two);
     }},
    {"pool",
     [](World&) {
         const BufferPool_Config config{{{64, 1}, {8, 70}}};
         BufferPool pool(&config, kLong);
         const auto one = pool.getPoolBuffer(8, nullptr), other = pool.getBuffer(8, new Counted);
         return either(one && other, true);
     }},
    {"ring", [](World&) { return either(RingBuffer(64, kLong).write("x", 1) == 0, true); }},
    {"record", [](World& w) { return w.record.setObjectArray("string", {w.record}), "done"; }},
    {"copy", [](World& w) { return w.record = Dictionary(everyType()), "done"; }},
    {"keys", [](World& w) { return either(w.record.allKeys().size() >= 10); }},
    {"write JSON",
     [](World&) {
         const std::string text = Serialization::serializeArray({everyType(), Dictionary()});
         return either(text == "[" + kJson + ", {}]", text.empty());
     }},
    {"read JSON",
     [](World& w) {
         const auto records = Serialization::deserializeArray(
             R"([{}, {"more than sixteen": 1, "b": {"c": "more\nthan sixteen"}, "e": [{}, {"g": ["h"]}]}])");
         Dictionary one = Serialization::deserialize("{\"object\": " + kJson + "}");
         if (records.empty() || one.size() == 0) return "none";
         const std::string again = Serialization::serialize(one.getObject("object"));
         if (again.empty()) return "none";
         const auto nested = records.at(1).getObjectArray("e");
         w.record = std::move(one);
         return either(again == kJson && nested.size() == 2 && nested[1].hasKey("g") &&
                       records[1].getInteger("more than sixteen") == 1 &&
                       records[1].getObject("b").getString("c") == "more\nthan sixteen");
     }},
    {"interfaces", [](World&) { return either(listInterfaces() == 1, true); }},
    {"addresses", [](World&) { return either(!SystemUtil::getLocalIPList().empty(), true); }},
    {"tasks and timers",
     [](World& w) {
         w.loop.addTimer(new Counted, 0, false);
         w.loop.postItem(new Counted, true, false);
         const long id = w.loop.addTimer(new Counted, 3600000, true);
         w.loop.dumpLoopInfo();
         w.loop.resetTimer(id);
         w.loop.stopTimer(id);
         const int before = runs;
         w.loop.postItem(new Counted, false, true);
         return either(runs > before);
     }},
    {"watch",
     [](World& w) {
         RunLoop own("own");
         const long id = own.addWatch(w.udp.descriptor(), RunLoop::WRITABLE, new Counted);
         own.removeWatch(id);
         return either(id != 0, true);
     }},
    {"start",
     [](World&) {
         const faults::Call priority("setpriority", EACCES, 0, 1, true);
         return either(startLoop(), true);
     }},
    {"handler", [](World& w) { return w.center.registerEventHandler("x", &w.second), "done"; }},
    {"new event", [](World& w) { return w.center.registerEventHandler(kLong, &w.second), "done"; }},
    {"event", [](World& w) { return either(w.center.sendEvent(Event("x"), nullptr)); }},
    {"parameter", [](World& w) { return w.parameter.set(kLong, new Counted), "done"; }},
    {"sockets",
     [](World& w) {
         UDPSocket udp;
         ClientSocket client, copy(w.client);
         char data[8] = "";
         unsigned int length = sizeof(data);
         std::string ip;
         uint16_t port = 0;
         if (!udp.create(kLocal, 0) || !client.create(kLocal, 0)) return "none";
         copy = *w.accepted;
         if (!client.connect(kLocal, w.listener.port())) return "refused";
         const std::unique_ptr<ClientSocket> accepted(w.listener.accept());
         udp.sendto(kLocal, w.udp.port(), data, 1, nullptr);
         return either(Socket::waitMultipleSocket({&w.udp, &client}, 1000).size() == 1 &&
                       w.udp.recvfrom(ip, port, data, length));
     }},
    {"bytes", [](World& w) { return StringUtil::string2UInt8Vector(kLong, w.bytes), "done"; }},
    {"texts",
     [](World&) {
         std::string manufacturer, model;
         setSystemProperty("ro.product.manufacturer", kLong.c_str());
         setSystemProperty("ro.product.model", Date(0).toString(0).c_str());
         return either(SystemUtil::getDeviceInfo(manufacturer, model) && manufacturer == kLong);
     }},
};

/// Runs a scenario, which is to end as promised with `count` allocations failing after the first
/// `skipped`, and once more without; false when it made fewer. `after` is what a whole run leaves.
bool runShort(const char* (*scenario)(World&), int skipped, int count, std::string& after) {
    const int injected = faults::Memory::injected;
    World world;
    const std::string before = world.state();
    std::string result = "bad_alloc";
    try {
        const faults::Memory fault("memory", ENOMEM, skipped, count, true);
        result = scenario(world);
    } catch (const std::bad_alloc&) {
    }
    const std::string now = world.state();
    if (count == 0) after = now;
    EXPECT_TRUE(now == after || (result != "done" && now == before)) << result << now;
    EXPECT_TRUE(result == "done" || (count > 0 && (result == "none" || result == "bad_alloc")))
        << result;
    EXPECT_STREQ(scenario(world), "done");
    return faults::Memory::injected > injected;
}

TEST(Memory, MayRunOutAtEveryAllocation) {
    Log::setCB([](int, const char* fmt, va_list args) {
        char text[4096];
        std::vsnprintf(text, sizeof(text), fmt, args);  // reads what it is given
    });
    for (const auto& [name, scenario] : kScenarios) {
        std::string after;
        for (const int count : {0, 0, 1, INT_MAX}) {  // at first the platform takes what it keeps
            for (int skipped = 0, failed = 1; failed != 0 && !HasFailure(); ++skipped) {
                SCOPED_TRACE(name + (" after " + std::to_string(skipped)));
                const ptrdiff_t descriptors = openDescriptors();
                const long blocks = faults::livingBlocks, objects = living;
                failed = runShort(scenario, skipped, count, after) ? 1 : 0;
                EXPECT_EQ(faults::livingBlocks, count == 0 ? faults::livingBlocks.load() : blocks);
                EXPECT_EQ(openDescriptors(), descriptors);
                EXPECT_EQ(living, objects);
            }
        }
    }
    Log::setCB(nullptr);
    std::printf("%d allocations failed\n", faults::Memory::injected.load());
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // their memory has no such end
/// Reads and writes a long string in a child process that may have so much more address space: 0 if
/// all is there, 1 if one of both refused, 2 otherwise.
int runWithin(size_t spare, const std::string& text) {
    const pid_t child = fork();
    if (child == 0) {
        size_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        const rlim_t bytes = pages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) + spare;
        const rlimit limit{bytes, bytes};
        setrlimit(RLIMIT_AS, &limit);
        const Dictionary record = Serialization::deserialize(text);
        const std::string written = Serialization::serialize(record);
        const bool isRefused = record.size() == 0 || written.empty();
        _exit(isRefused ? 1 : written == text ? 0 : 2);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 2;
}

TEST(Memory, MayEndAtAnyLimitOfTheAddressSpace) {
    int results[3] = {};
    for (const size_t size : {size_t{1} << 22, size_t{1} << 26}) {
        const std::string text = R"({"a": ")" + std::string(size, 'x') + "\"}";
        for (size_t halves = 0; halves <= 10; ++halves) {
            ++results[runWithin(halves * size / 2, text)];
        }
    }
    EXPECT_TRUE(results[0] > 0 && results[1] > 0);
    EXPECT_EQ(results[2], 0);
}
#endif

/// What an operation gives while a call of it fails, and when it is made again.
struct Row {
    const char* call;
    int error;
    std::function<long()> operation;
    long failed, whole;
    const char* line = "";  // N stands for a descriptor or port
    int skipped = 0;
    bool everywhere = false;
};

std::string withoutNumbers(std::string line) {
    for (const std::string name : {"socket=", "port=", "descriptor "}) {
        const size_t at = line.find(name) + name.size();
        if (at >= name.size() && at < line.size()) {
            line.replace(at, std::strspn(&line[at], "0123456789"), "N");
        }
    }
    return line;
}

TEST(SystemCalls, MayFail) {
    World w;
    Mutex mutex;
    char data[8];
    unsigned int length = sizeof(data);
    const auto timed = [&] { return w.semaphore.wait(9); };
    const auto wait = [&] {  // a refused one finds a signal next time
        const int result = w.semaphore.wait();
        if (result != 0) w.semaphore.notify();
        return result;
    };
    const auto notify = [] { return Semaphore().notify(); };
    const auto create = [] { return UDPSocket().create(kLocal, 0); };
    const auto accept = [&] {
        ClientSocket other;
        EXPECT_TRUE(other.create(kLocal, 0) && other.connect(kLocal, w.listener.port()));
        return std::unique_ptr<ClientSocket>(w.listener.accept()) != nullptr;
    };
    const auto receive = [&] {
        return w.accepted->send("x", 1, nullptr) && w.client.recv(data, length);
    };
    const auto sleep = [] {
        const uint64_t begin = SystemUtil::getCPUTimeInMicroseconds();
        SystemUtil::sleep(20);
        return SystemUtil::getCPUTimeInMicroseconds() - begin >= 20000;
    };
    // Whether it is held depends on the result, which the analysis cannot follow.
    const auto lock = [&]() NIVUR_NO_THREAD_SAFETY_ANALYSIS {
        return mutex.lock() && mutex.unlock();
    };
    const auto copied = [&] {
        const ClientSocket copy(w.client);
        EXPECT_EQ(copy.remotePort(), copy.descriptor() == -1 ? 0 : w.listener.port());
        return copy.descriptor() != -1;
    };
    const auto post = [&] {  // a poster who waits does so before the task
        w.loop.postItem(makeRunnable([&] { w.semaphore.wait(300); }), false, false);
        const int before = runs;
        w.loop.postItem(new Counted, false, true);
        const bool ran = runs > before;
        if (!ran) w.semaphore.notify();
        w.loop.postItem(makeRunnable([] {}), false, true);
        return ran;
    };
    const auto watch = [&] {
        RunLoop own("loop");
        const bool watched = own.addWatch(w.udp.descriptor(), RunLoop::WRITABLE, new Counted) != 0;
        const int before = runs;
        EXPECT_TRUE(own.start());
        while (watched && runs == before)
            std::this_thread::yield();
        own.postItem(makeRunnable([] {}), false, true);
        return watched;
    };
    const char* const noWatch = "5 cannot watch descriptor N: err=24";
    const char* const noThread = "5 creating thread failed: err=11";
    const char* const noClock = "5 cannot get CPU time: error=22";
    const Row rows[] = {
        {"pthread_create", EAGAIN, startThread, 0, 1, noThread},
        {"pthread_create", EAGAIN, startLoop, 0, 1, noThread},
        {"pthread_join", EDEADLK, startThread, 1, 1, "5 thread_join() failed: err=35"},
        {"setpriority", EACCES, startThread, 1, 1,
         "4 Change the thread priority failed: named, err=13", 0, true},
        {"pthread_mutex_lock", EINVAL, lock, 0, 1},
        {"sem_wait", EINVAL, wait, -1, 0},
        {"sem_wait", EINTR, startThread, 1, 1},
        {"sem_wait", EINVAL, startThread, 1, 1},
        {"sem_wait", EINVAL, post, 0, 1, "5 Semaphore wait error, run loop item may not run"},
        {"sem_clockwait", EINVAL, timed, -1, 1},
        {"sem_clockwait", EINTR, timed, 1, 1},
        {"sem_wait", EINVAL, startLoop, 1, 1, "", 0, true},
        {"epoll_create1", EMFILE, watch, 0, 1, noWatch},
        {"eventfd", EMFILE, watch, 0, 1, noWatch},
        {"epoll_ctl", EMFILE, watch, 0, 1, noWatch},
        {"epoll_ctl", EMFILE, watch, 0, 1, noWatch, 1},
        {"epoll_wait", EINTR, watch, 1, 1, "", 0, true},
        {"read", EINTR, watch, 1, 1, "", 0, true},
        {"sem_post", EOVERFLOW, notify, EOVERFLOW, 0},
        {"clock_gettime", EINVAL, [] { return SystemUtil::getCPUTime() > 0; }, 0, 1, noClock},
        {"clock_gettime", EINVAL, timed, 1, 1, noClock},
        {"nanosleep", EINTR, sleep, 1, 1},
        {"socket", EMFILE, create, 0, 1, "5 socket create failed, err=24"},
        {"bind", EACCES, create, 0, 1, "5 socket bind failed, err=13"},
        {"accept4", ECONNABORTED, accept, 0, 1,
         "5 accept() failed: socket=N, ip=127.0.0.1, port=N, err=103"},
        {"recv", ECONNRESET, receive, 0, 1, "2 recv data failed: socket=N, err=104"},
        {"fcntl", EMFILE, copied, 0, 1},
        {"getsockname", ENOBUFS, [&] { return w.udp.port() > 0; }, 0, 1},
        {"getsockname", ENOBUFS, [&] { return w.udp.address() == kLocal; }, 0, 1},
        {"ioctl", ENOTTY, [&] { return w.udp.setBlocking(true); }, -1, 0},
        {"setsockopt", ENOBUFS, [&] { return w.udp.setBufLength(5000); }, -1, 0, "", 1},
        {"ppoll", EINTR, [&] { return w.udp.select(0); }, -1, 1,
         "2 select breaks, socket=N, errno=4"},
        {"ppoll", ENOMEM, [&] { return Socket::waitMultipleSocket({&w.listener}, 0).size(); }, 0,
         1},
        {"socket", EMFILE, listInterfaces, -1, 1},
        {"socket", ENFILE, listInterfaces, 0, 1, "", 1},
        {"send", ENOBUFS, listInterfaces, -1, 1},
        {"recv", EINTR, listInterfaces, -1, 1},
        {"recv", 0, listInterfaces, -1, 1},
        {"if_indextoname", ENXIO, listInterfaces, 0, 1},
        {"ioctl", ENODEV, listInterfaces, 0, 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.call + (" " + std::to_string(&row - rows)));
        const ptrdiff_t descriptors = openDescriptors();
        const int objects = living;
        std::string lines;
        {
            LogCapture capture;
            const faults::Call fault(row.call, row.error, row.skipped, 1, row.everywhere);
            EXPECT_EQ(row.operation(), row.failed);
            for (const std::string& line : capture.take()) {
                if (line != "2 thread loop break loop!") lines += line;
            }
        }
        EXPECT_EQ(withoutNumbers(lines), row.line);
        EXPECT_EQ(row.operation(), row.whole);
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_EQ(living, objects);
    }
    std::printf("%d calls failed\n", faults::Call::injected.load());
}

TEST(Memory, MayRunOutForTheFirstWatchOfASleepingLoop) {
    World w;
    for (int skipped = 0; skipped < 10; ++skipped) {
        RunLoop loop("loop");
        ASSERT_TRUE(loop.start());
        loop.postItem(makeRunnable([] {}), false, true);
        SystemUtil::sleep(1);
        auto* const task = new Counted;
        try {
            const faults::Memory fault("memory", 0, skipped);
            loop.addWatch(w.udp.descriptor(), RunLoop::WRITABLE, task);
        } catch (const std::bad_alloc&) {
        }
        Semaphore ran;
        loop.addWatch(w.udp.descriptor(), RunLoop::WRITABLE, makeRunnable([&] { ran.notify(); }));
        EXPECT_EQ(ran.wait(20000), 0) << skipped;
        loop.stop();
    }
}

TEST(MonotonicClock, MayFailUnderALoopWithoutMakingItSpinOrHang) {
    RunLoop loop("loop");
    ASSERT_TRUE(loop.start());
    loop.addTimer(new Counted, 3600000, true);
    const int before = faults::Call::injected;
    {
        const faults::Call fault("clock_gettime", EINVAL, 0, INT_MAX, true);
        for (int posts = 0; posts < 5; ++posts) {
            SystemUtil::sleep(20);  // over which the loop's looks are counted
            loop.postItem(new Counted, false, true);
        }
    }
    EXPECT_LT(faults::Call::injected - before, 200);
    Semaphore rang;
    loop.addTimer(makeRunnable([&] { rang.notify(); }), 1, false);
    EXPECT_EQ(rang.wait(20000), 0);
}

TEST(WallClock, MayBeSetByAnHourUnderWaitsAndTimers) {
    uint64_t latest = 101;
    for (int attempt = 0; attempt < 5 && latest > 100; ++attempt) {  // the machine may be slow
        World w;
        latest = 0;
        uint64_t due = SystemUtil::getCPUTime();
        const auto tick = [&] {
            const uint64_t now = SystemUtil::getCPUTime();
            EXPECT_GE(now, due += 20);
            latest = std::max(latest, now - due);
            faults::wallClockOffset = faults::wallClockOffset > 0 ? -3600 : 3600;
        };
        w.loop.addTimer(makeRunnable(tick), 20, true);
        for (const unsigned int timeout : {1U, 30U, 250U}) {
            const uint64_t begin = SystemUtil::getCPUTimeInMicroseconds();
            EXPECT_EQ(w.semaphore.wait(timeout), 1);
            EXPECT_GE(SystemUtil::getCPUTimeInMicroseconds() - begin, timeout * 1000);
        }
        w.loop.stop();
    }
    EXPECT_LE(latest, 100U);
}

// What they wait for comes after 60 ms. Only calls that the platform interrupts end earlier: those
// of sockets, unless the handler restarts them.
TEST(Signals, ShortenNoWaitOfTheLibraryItself) {
    World w;
    char data[8];
    unsigned int length = sizeof(data);
    UDPSocket silent;
    ClientSocket late, waiting[3];
    ASSERT_TRUE(silent.create(kLocal, 0) && late.create(kLocal, 0));
    const std::tuple<std::function<void()>, std::function<long()>, long, long> rows[] = {
        {[] {}, [] { return SystemUtil::sleep(60), 0; }, 0, 0},
        {[] {}, [&] { return w.semaphore.wait(60); }, 1, 1},
        {[&] { w.semaphore.notify(); }, [&] { return w.semaphore.wait(); }, 0, 0},
        {[] {},
         [&] {
             return w.loop.postItem(makeRunnable([] { SystemUtil::sleep(60); }), true, true), 0;
         },
         0, 0},
        {[&] { w.accepted->send("x", 1, nullptr); }, [&] { return w.client.recv(data, length); }, 0,
         1},
        {[&] { late.connect(kLocal, w.listener.port()); },
         [&] { return std::unique_ptr<ClientSocket>(w.listener.accept()) != nullptr; }, 0, 1},
        {[] {}, [&] { return silent.select(); }, -1, -1},
        {[] {}, [&] { return silent.select(9999); }, -1, -1},
        {[] {}, [&] { return Socket::waitMultipleSocket({&silent}, 9999).size(); }, 0, 0},
    };
    for (const int flags : {0, SA_RESTART}) {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        action.sa_flags = flags;
        ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
        for (const auto& [later, operation, interrupted, restarted] : rows) {
            SCOPED_TRACE(&later - &std::get<0>(rows[0]));
            const pthread_t waiter = pthread_self();
            std::atomic<bool> over{false};
            std::thread pelting([&over, waiter] {
                while (!over) {
                    pthread_kill(waiter, SIGUSR1);
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
            });
            const uint64_t begin = SystemUtil::getCPUTimeInMicroseconds();
            const long id = w.loop.addTimer(makeRunnable(later), 60, false);
            const long result = operation();
            const uint64_t passed = SystemUtil::getCPUTimeInMicroseconds() - begin;
            over = true;
            pelting.join();
            EXPECT_EQ(result, flags == 0 ? interrupted : restarted);
            EXPECT_GE(passed, &operation <= &std::get<1>(rows[3]) ? 59000U : 0U);
            EXPECT_LT(passed, 5000000U);
            w.loop.stopTimer(id);
        }
    }
}

bool allScenariosRun() {
    World world;
    return std::all_of(std::begin(kScenarios), std::end(kScenarios), [&](const auto& each) {
        return std::strcmp(each.second(world), "done") == 0;
    });
}

TEST(Fork, LeavesLoopsToTheParentAndAllThatIsNewToTheChild) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer cannot follow threads of a forked child";
#endif
    World parent;
    const pid_t child = fork();
    if (child == 0) _exit(allScenariosRun() ? 0 : 1);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(allScenariosRun());
    EXPECT_STREQ(kScenarios[11].second(parent), "done");
}

// Made before main() and gone after it.
struct Static {
    Static() { world.held = world.list.getBuffer(1); }
    ~Static() {
        if (!allScenariosRun()) std::abort();
    }
    World world;
} atExit;

}  // namespace
}  // namespace NIVUR
