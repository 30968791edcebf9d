#include <dlfcn.h>
#include <nivur/ifaddrs.h>
#include <nivur/interface_address.h>
#include <sched.h>

#include <cstdio>
#include <thread>

#include "bench.h"

namespace bench {

namespace {

const Family kFamily("interfaces");

struct NivurInterfaces {
    static std::string name() { return "nivur"; }
    static void list() {
        ifaddrs* addresses = nullptr;
        ::getifaddrs(&addresses);
        ::freeifaddrs(addresses);
    }
};

struct NivurValues {
    static std::string name() { return "nivur"; }
    static void list() {
        std::vector<NIVUR::InterfaceAddress> addresses;
        NIVUR::getInterfaceAddresses(addresses);
    }
};

/// The C library's functions; in this process nivur's have their names. They list the links as
/// well.
struct PlainInterfaces {
    static std::string name() { return "C library"; }
    static void list() {
        static void* const library = ::dlopen("libc.so.6", RTLD_LAZY);
        static const auto get = reinterpret_cast<int (*)(void**)>(::dlsym(library, "getifaddrs"));
        static const auto release =
            reinterpret_cast<void (*)(void*)>(::dlsym(library, "freeifaddrs"));
        void* addresses = nullptr;
        get(&addresses);
        release(addresses);
    }
};

/// Moves the calling thread to a new network namespace with that number of addresses. Returns false
/// if it may not.
bool makeNetwork(int addresses) {
    if (::unshare(CLONE_NEWNET) != 0) {
        return false;
    }
    FILE* const ip = ::popen("ip -batch -", "w");
    if (ip == nullptr) {
        return false;
    }
    std::fputs("link set lo up\n", ip);
    for (int i = 2; i < addresses; ++i) {  // it has two from the start
        std::fprintf(ip, "address add 10.0.%d.%d/32 dev lo\n", i / 250, i % 250 + 1);
    }
    return ::pclose(ip) == 0;
}

template <class Interfaces>
void measure(State& state, Peer<Interfaces>, int addresses) {
    std::thread([&] {
        if (!makeNetwork(addresses)) {
            state.SkipWithError("a network namespace needs root");
        }
        for (auto _ : state) {
            Interfaces::list();
        }
    }).join();
}

}  // namespace

void addInterfaces() {
    for (const int addresses : {2, 300}) {
        kFamily.addThreaded("list " + std::to_string(addresses) + " addresses",
                            Peers<NivurInterfaces, PlainInterfaces>(),
                            [=](State& state, auto peer) { measure(state, peer, addresses); });
        kFamily.addThreaded("list " + std::to_string(addresses) + " addresses as values",
                            Peers<NivurValues, PlainInterfaces>(),
                            [=](State& state, auto peer) { measure(state, peer, addresses); });
    }
}

}  // namespace bench
