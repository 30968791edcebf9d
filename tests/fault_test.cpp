#include <sys/wait.h>

#include <climits>
#include <fstream>

#include "support/fault_world.h"

namespace NIVUR {
namespace {

const std::string kLong = "text that is too long for a string's own room";

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

struct Objects : World {
    explicit Objects(Counts& all) : World(all) {
        center.registerEventHandler("x", &first);
        counts.called = &loop;
        for (int i = 0; i < 64; ++i)
            full.setBoolean("key " + std::to_string(10 + i), true);
    }
    ~Objects() { counts.called = nullptr; }
    /// Objects that an operation changes completely or not at all.
    std::string state() {
        counts.events = 0;
        center.sendEvent(Event("x"), nullptr);
        return Serialization::serializeArray({record, full}) + std::to_string(counts.events) + ' ' +
               std::to_string(bytes.size() * 100 + size_t{10} * buffers.freeCount() +
                              parameter.size());
    }
    SharedPtr<Buffer> held;
    Counted first{counts}, second{counts};
    BufferList buffers{{64, 3}};
    EventCenter center;
    Parameter parameter;
    Dictionary record = everyType();
    Dictionary full;  // one full block of keys
    std::vector<uint8_t> bytes;
};

const char* either(bool done, bool none = false) {
    return done ? "done" : none ? "none" : "half done";
}

struct CountingDisposer final : PtrDisposer<Counted> {
    void dispose(Counted* object) override { ++calls, delete object; }
    int calls = 0;
};

const std::string kJson = Serialization::serialize(everyType());

// Returns "done", or "none" if an operation reports exhausted memory by its result. The tasks do
// not allocate: that would end the process.
const std::pair<const char*, const char* (*)(Objects&)> kScenarios[] = {
    {"buffer",
     [](Objects& w) { return either(!!BufferPool::getBuffer(64, new Counted(w.counts)), true); }},
    {"buffers of a list",
     [](Objects& w) {
         const auto one = w.buffers.getBuffer(1), two = w.buffers.getBuffer(1);
         one->parameter().set("key", new Counted(w.counts));
         return either(one && two);
     }},
    {"pool",
     [](Objects& w) {
         const BufferPool_Config config{{{64, 1}, {8, 70}}};
         BufferPool pool(&config, kLong);
         const auto one = pool.getPoolBuffer(8, nullptr),
                    other = pool.getBuffer(8, new Counted(w.counts));
         return either(one && other, true);
     }},
    {"pointer",
     [](Objects& w) {
         for (Counted* object : {new Counted(w.counts), static_cast<Counted*>(nullptr)}) {
             CountingDisposer disposer;
             try {
                 const SharedPtr<Counted> pointer(object, &disposer);
             } catch (const std::bad_alloc&) {
                 if (disposer.calls == 1) throw;
             }
             if (disposer.calls != 1) return "half done";
         }
         return "done";
     }},
    {"ring", [](Objects&) { return either(RingBuffer(64, kLong).write("x", 1) == 0, true); }},
    {"record", [](Objects& w) { return w.record.setObjectArray("string", {w.record}), "done"; }},
    {"record, within", [](Objects& w) { return w.full.setString("key 1" + kLong, kLong), "done"; }},
    {"record, at the end", [](Objects& w) { return w.full.setString("z" + kLong, kLong), "done"; }},
    {"copy", [](Objects& w) { return w.record = Dictionary(everyType()), "done"; }},
    {"keys", [](Objects& w) { return either(w.record.allKeys().size() >= 10); }},
    {"write JSON",
     [](Objects&) {
         const std::string text = Serialization::serializeArray({everyType(), Dictionary()});
         return either(text == "[" + kJson + ", {}]", text.empty());
     }},
    {"read JSON",
     [](Objects& w) {
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
    {"interfaces", [](Objects&) { return either(listInterfaces() == 1, true); }},
    {"addresses", [](Objects&) { return either(!SystemUtil::getLocalIPList().empty(), true); }},
    {"tasks and timers",
     [](Objects& w) {
         w.loop.addTimer(new Counted(w.counts), 0, false);
         w.loop.postItem(new Counted(w.counts), true, false);
         const long id = w.loop.addTimer(new Counted(w.counts), 3600000, true);
         w.loop.dumpLoopInfo();
         w.loop.resetTimer(id);
         w.loop.stopTimer(id);
         const int before = w.counts.runs;
         w.loop.postItem(new Counted(w.counts), false, true);
         return either(w.counts.runs > before);
     }},
    {"watch",
     [](Objects& w) {
         RunLoop own("own");
         const long id = own.addWatch(w.udp.descriptor(), RunLoop::WRITABLE, new Counted(w.counts));
         own.removeWatch(id);
         return either(id != 0, true);
     }},
    {"start",
     [](Objects& w) {
         const faults::Call priority("setpriority", EACCES, 0, 1, true);
         return either(w.startLoop(), true);
     }},
    {"handler", [](Objects& w) { return w.center.registerEventHandler("x", &w.second), "done"; }},
    {"new event",
     [](Objects& w) { return w.center.registerEventHandler(kLong, &w.second), "done"; }},
    {"event", [](Objects& w) { return either(w.center.sendEvent(Event("x"), nullptr)); }},
    {"parameter", [](Objects& w) { return w.parameter.set(kLong, new Counted(w.counts)), "done"; }},
    {"sockets",
     [](Objects& w) {
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
    {"results",
     [](Objects& w) {
         const bool named = w.client.remotePort() == w.listener.port();
         const IoResult connected = w.connectAndAccept(), again = w.client.finishConnect();
         const IoResult listed = w.list();
         if (listed.error == ENOMEM) return "none";
         return either(named && connected && again && listed && w.exchange());
     }},
    {"bytes", [](Objects& w) { return StringUtil::string2UInt8Vector(kLong, w.bytes), "done"; }},
    {"texts",
     [](Objects&) {
         std::string manufacturer, model;
         setSystemProperty("ro.product.manufacturer", kLong.c_str());
         setSystemProperty("ro.product.model", Date(0).toString(0).c_str());
         return either(SystemUtil::getDeviceInfo(manufacturer, model) && manufacturer == kLong);
     }},
};

/// Runs a scenario while `count` allocations fail after the first `skipped`, and then once without
/// failures, and checks its promises. Returns false if it made fewer allocations. `after` is what a
/// complete run leaves.
bool runShort(Counts& counts, const char* (*scenario)(Objects&), int skipped, int count,
              std::string& after) {
    const int injected = faults::Memory::injected;
    Objects world(counts);
    const std::string before = world.state();
    std::string result = "bad_alloc";
    try {
        const faults::Memory fault("memory", ENOMEM, skipped, count, true);
        result = scenario(world);
    } catch (const std::bad_alloc&) {
    }
    const std::string now = world.state();
    if (count == 0) after = now;
    if (count == 0 || result == "done") {
        EXPECT_EQ(result, "done");
        EXPECT_EQ(now, after);
    } else {
        EXPECT_TRUE(now == after || now == before) << result << now;
        EXPECT_TRUE(result == "none" || result == "bad_alloc") << result;
    }
    EXPECT_STREQ(scenario(world), "done");
    return faults::Memory::injected > injected;
}

TEST(Memory, MayRunOutAtEveryAllocation) {
    Log::setCB([](int, const char* fmt, va_list args) {
        char text[4096];
        std::vsnprintf(text, sizeof(text), fmt, args);  // reads all arguments
    });
    for (const auto& [name, scenario] : kScenarios) {
        std::string after;
        for (const int count : {0, 0, 1, INT_MAX}) {  // 0: fills the platform's caches
            for (int skipped = 0, failed = 1; failed != 0 && !HasFailure(); ++skipped) {
                SCOPED_TRACE(name + (" after " + std::to_string(skipped)));
                const ptrdiff_t descriptors = openDescriptors();
                const long blocks = faults::livingBlocks;
                Counts counts;
                failed = runShort(counts, scenario, skipped, count, after) ? 1 : 0;
                EXPECT_EQ(faults::livingBlocks, count == 0 ? faults::livingBlocks.load() : blocks);
                EXPECT_EQ(openDescriptors(), descriptors);
                EXPECT_EQ(counts.living, 0);
            }
        }
    }
    Log::setCB(nullptr);
    std::printf("%d allocations failed\n", faults::Memory::injected.load());
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they reserve all addresses
/// Reads and writes a long string in a child process with a limited additional address space.
/// Returns 0 if both succeed, 1 if one of both fails as documented, otherwise 2.
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
        for (size_t halves = 0; halves <= 10; ++halves)
            ++results[runWithin(halves * size / 2, text)];
    }
    EXPECT_GT(results[0], 0);
    EXPECT_GT(results[1], 0);
    EXPECT_EQ(results[2], 0);
}
#endif

TEST(Memory, MayRunOutForTheFirstWatchOfASleepingLoop) {
    Counts counts;
    World w(counts);
    for (int skipped = 0; skipped < 10; ++skipped) {
        RunLoop loop("loop");
        ASSERT_TRUE(loop.start());
        loop.postItem(makeRunnable([] {}), false, true);
        SystemUtil::sleep(1);
        auto* const task = new Counted(counts);
        try {
            const faults::Memory fault("memory", 0, skipped);
            loop.addWatch(w.udp.descriptor(), RunLoop::WRITABLE, task);
        } catch (const std::bad_alloc&) {
        }
        Semaphore ran;
        const int descriptor = skipped % 2 == 0 ? w.udp.descriptor() : w.accepted->descriptor();
        loop.addWatch(descriptor, RunLoop::READABLE, makeRunnable([&] { ran.notify(); }));
        const faults::Memory none("memory", 0, 0, INT_MAX, true);  // existing objects need none
        w.udp.sendto(w.udp.localAddress(), "x", 1), w.client.send("x", size_t{1});
        EXPECT_EQ(ran.wait(20000), 0) << skipped;
        loop.stop();
    }
}

bool allScenariosRun() {
    Counts counts;
    Objects world(counts);
    return std::all_of(std::begin(kScenarios), std::end(kScenarios), [&](const auto& each) {
        return std::strcmp(each.second(world), "done") == 0;
    });
}

TEST(Fork, LeavesLoopsToTheParentAndAllThatIsNewToTheChild) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer cannot follow threads of a forked child";
#endif
    Counts counts;
    Objects parent(counts);
    const pid_t child = fork();
    if (child == 0) _exit(allScenariosRun() ? 0 : 1);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(allScenariosRun());
    EXPECT_STREQ(kScenarios[11].second(parent), "done");
}

// Constructed before main() and destroyed after it, which is what it tests.
struct Static {
    Static() { world.held = world.buffers.getBuffer(1); }
    ~Static() {
        if (!allScenariosRun()) std::abort();
    }
    Counts counts;
    Objects world{counts};
} atExit;

}  // namespace
}  // namespace NIVUR
