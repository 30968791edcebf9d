#ifndef NIVUR_TESTS_SUPPORT_FAULT_WORLD_H
#define NIVUR_TESTS_SUPPORT_FAULT_WORLD_H

#include <nivur/ifaddrs.h>

#include "fault_injector.h"
#include "sockets.h"

namespace NIVUR {

/// Counts what the objects of a test do.
struct Counts {
    std::atomic<int> living{0}, runs{0}, events{0};
    std::atomic<RunLoop*> called{nullptr};  // by destructors of tasks: its lock must not be held
};

struct Counted : BaseBufferParam, ParameterValue, Runnable, EventHandler {
    explicit Counted(Counts& all) : counts(all) { ++counts.living; }
    ~Counted() override {
        --counts.living;
        if (RunLoop* const loop = counts.called) loop->resetTimer(0);
    }
    void run() override {
        ++counts.runs;
        errno = EINTR;  // says nothing about the loop's next call
    }
    std::string dump() override { return "text that is too long for a string's own room"; }
    void onEvent(const Event& /*event*/, Parameter* /*parameter*/) override { ++counts.events; }
    Counts& counts;
};

/// The objects that faults are tested with: a running loop, and sockets, two of which are
/// connected.
struct World {
    explicit World(Counts& all) : counts(all) {
        const bool made = loop.start() && udp.create(kLocal, 0) && client.create(kLocal, 0) &&
                          listener.create(kLocal, 0) && listener.listen(9) &&
                          client.connect(kLocal, listener.port());
        accepted.reset(made ? listener.accept() : nullptr);
    }
    IoResult connectAndAccept() {
        ClientSocket other, taken;
        IoResult result = other.create(kAnyPort, true);
        if (result) result = other.connect(listener.localAddress());
        return result ? listener.accept(taken) : result;
    }
    IoResult exchange() {  // the datagrams are received one by one
        SocketAddress sender;
        char data[8];
        const IoResult sent = udp.sendDatagrams(udp.localAddress(), "aabbc", 5, 2);
        if (!sent) return sent;
        for (const size_t size : {2U, 2U, 1U}) {
            EXPECT_EQ(udp.recvfrom(sender, data, 8), done(size));
        }
        return sent;
    }
    IoResult list() {
        addresses.assign(1, {});
        const IoResult listed = getInterfaceAddresses(addresses);
        EXPECT_EQ(addresses.size(), listed ? listed.count : 1);
        return listed;
    }
    /// Makes a loop that runs a timer and a task; false if it cannot start.
    bool startLoop() {
        RunLoop own("loop");
        own.addTimer(new Counted(counts), 0, true);
        if (!own.start()) return false;
        const int before = counts.runs;
        own.postItem(new Counted(counts), false, true);
        return counts.runs > before;
    }
    Counts& counts;
    UDPSocket udp;
    ServerSocket listener;
    ClientSocket client;
    std::unique_ptr<ClientSocket> accepted;
    std::vector<InterfaceAddress> addresses;
    Semaphore semaphore;
    RunLoop loop{"loop"};
};

// Returns 1: listed, 0: null, -1: unchanged.
inline int listInterfaces() {
    ifaddrs none{};
    ifaddrs* list = &none;
    const bool listed = getifaddrs(&list) == 0;
    if (list != &none) freeifaddrs(list);
    return list == &none ? -1 : listed ? 1 : 0;
}

}  // namespace NIVUR

#endif
