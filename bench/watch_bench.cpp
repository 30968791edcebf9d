#include <nivur/udp_socket.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <set>

#include "loops.h"

namespace bench {

namespace {

const Family kFamily("watches");
using AllLoops = Peers<NivurLoop, UvLoop, AsioLoop, EventLoop, GlibLoop, LooperLoop>;
constexpr int kRounds = 500;
constexpr size_t kWatched = 1000;
constexpr size_t kBatch = 500;
constexpr int kPatience = 10;  // ms, after which a waiting thread checks whether it has to end

/// The two connected ends of a socket pair.
class Ends {
  public:
    Ends() { ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, _ends.data()); }
    Ends(const Ends&) = delete;
    Ends& operator=(const Ends&) = delete;
    ~Ends() {
        ::close(_ends[0]);
        ::close(_ends[1]);
    }
    int operator[](size_t end) const { return _ends[end]; }
    void send(size_t end) const {
        const char byte = 'x';
        benchmark::DoNotOptimize(::write(_ends[end], &byte, 1));
    }
    void take(size_t end) const {
        char byte = 0;
        benchmark::DoNotOptimize(::read(_ends[end], &byte, 1));
    }

  private:
    std::array<int, 2> _ends{};
};

/// Adds a watch on the loop's thread, which all peers allow.
template <class Loop>
auto addWatch(Loop& loop, int descriptor, const Action& action) {
    typename Loop::WatchHandle watch{};
    loop.call([&] { watch = loop.addWatch(descriptor, action); });
    return watch;
}

template <class Loop, class Watch>
void removeWatch(Loop& loop, const Watch& watch) {
    loop.call([&] { loop.removeWatch(watch); });
}

/// The time from the write until the task runs.
template <class Loop>
void measureByte(State& state, Peer<Loop>, int processor) {
    const Ends ends;
    Loop loop = startOn<Loop>(processor);
    Signal done;
    Clock::time_point ran;
    const auto watch = addWatch(loop, ends[0], [&] {
        ran = Clock::now();
        ends.take(0);
        done.set();
    });
    Samples times;
    repeat(state, kRounds, [&] {
        const auto begin = Clock::now();
        ends.send(1);
        done.wait();
        times.add(ran - begin);
    });
    state.counters["time"] = times.at(0.5);
    removeWatch(loop, watch);
}

/// A byte is passed back and forth between two loops: the time of one direction.
template <class Loop>
void measureBackAndForth(State& state, Peer<Loop>, int processor) {
    const Ends ends;
    std::array<Loop, 2> loops{startOn<Loop>(0), startOn<Loop>(processor)};
    Signal done;
    int left = 0;
    const auto pass = [&](size_t end) {
        ends.take(end);
        if (end == 0 && --left == 0) {
            done.set();
        } else {
            ends.send(end);
        }
    };
    const auto first = addWatch(loops[0], ends[0], [&] { pass(0); });
    const auto second = addWatch(loops[1], ends[1], [&] { pass(1); });
    for (auto _ : state) {
        left = kRounds;
        ends.send(0);
        done.wait();
    }
    setItems(state, size_t{2} * kRounds);
    removeWatch(loops[0], first);
    removeWatch(loops[1], second);
}

/// Some of a thousand descriptors become ready again and again: the time for each of them.
template <class Loop>
void measureReady(State& state, Peer<Loop>, size_t ready) {
    std::vector<int> descriptors;
    Loop loop;
    Signal done;
    size_t left = 0;
    std::vector<typename Loop::WatchHandle> watches;
    for (size_t i = 0; i < kWatched; ++i) {
        const int descriptor = ::eventfd(0, EFD_NONBLOCK);
        descriptors.push_back(descriptor);
        watches.push_back(addWatch(loop, descriptor, [&, descriptor] {
            eventfd_t value = 0;
            ::eventfd_read(descriptor, &value);
            if (--left == 0) {
                done.set();
            }
        }));
    }
    for (auto _ : state) {
        for (int round = 0; round < 20; ++round) {
            loop.call([&] {  // so that the loop polls when all are ready
                left = ready;
                for (size_t i = 0; i < ready; ++i) {
                    ::eventfd_write(descriptors[i * (kWatched / ready)], 1);
                }
            });
            done.wait();
        }
    }
    setItems(state, 20 * ready);
    for (auto& watch : watches) {
        removeWatch(loop, watch);
    }
    loop.call([] {});  // some peers release a descriptor one pass later
    for (const int descriptor : descriptors) {
        ::close(descriptor);
    }
}

template <class Loop>
void measureAddAndRemove(State& state, Peer<Loop>) {
    const Ends ends;
    Loop loop;
    for (auto _ : state) {
        loop.call([&] {
            for (size_t i = 0; i < kBatch; ++i) {
                auto watch = loop.addWatch(ends[0], [] {});
                loop.removeWatch(watch);
            }
        });
    }
    setItems(state, kBatch);
}

using Sockets = std::vector<NIVUR::UDPSocket>;
using Take = std::function<void(const NIVUR::UDPSocket&)>;

/// Waits for datagrams with a watch for each socket.
template <class Loop>
class Watching {
  public:
    static std::string name() { return Loop::name(); }
    Watching(Sockets& sockets, const Take& take) {
        for (const NIVUR::UDPSocket& socket : sockets) {
            _watches.push_back(addWatch(_loop, socket.descriptor(), [&] { take(socket); }));
        }
    }
    ~Watching() {
        for (auto& watch : _watches) {
            removeWatch(_loop, watch);
        }
        _loop.call([] {});  // some peers release a descriptor one pass later
    }

  private:
    Loop _loop;
    std::vector<typename Loop::WatchHandle> _watches;
};

/// Waits for datagrams with a thread that passes all sockets to the kernel for each wait.
template <class Wait>
class Waiting {
  public:
    static std::string name() { return Wait::name(); }
    Waiting(Sockets& sockets, const Take& take) {
        _thread = std::thread([&, this] {
            Wait wait(sockets);
            while (!_stopped) {
                wait.once(take);
            }
        });
    }
    ~Waiting() {
        _stopped = true;
        _thread.join();
    }

  private:
    std::atomic<bool> _stopped{false};
    std::thread _thread;
};

class NivurWait {
  public:
    static std::string name() { return "nivur's waitMultipleSocket"; }
    explicit NivurWait(Sockets& sockets) {
        for (NIVUR::UDPSocket& socket : sockets) {
            _set.insert(&socket);
        }
    }
    void once(const Take& take) {
        for (NIVUR::Socket* socket : NIVUR::Socket::waitMultipleSocket(_set, kPatience)) {
            take(*static_cast<NIVUR::UDPSocket*>(socket));
        }
    }

  private:
    std::set<NIVUR::Socket*> _set;
};

class PollWait {
  public:
    static std::string name() { return "poll"; }
    explicit PollWait(Sockets& sockets) : _sockets(sockets) {
        for (const NIVUR::UDPSocket& socket : sockets) {
            _polled.push_back({socket.descriptor(), POLLIN, 0});
        }
    }
    void once(const Take& take) {
        ::poll(_polled.data(), _polled.size(), kPatience);
        for (size_t i = 0; i < _polled.size(); ++i) {
            if (_polled[i].revents != 0) {
                take(_sockets[i]);
            }
        }
    }

  private:
    const Sockets& _sockets;
    std::vector<pollfd> _polled;
};

/// The time from sending a datagram to one of the sockets until it has been received.
template <class Waiter>
void measureDatagram(State& state, Peer<Waiter>, size_t count) {
    Sockets sockets(count);
    for (NIVUR::UDPSocket& socket : sockets) {
        socket.create("127.0.0.1", 0);
    }
    const NIVUR::SocketAddress receiver = sockets[count / 2].localAddress();
    NIVUR::UDPSocket sender;
    sender.create("127.0.0.1", 0);
    Signal taken;
    const Take take = [&](const NIVUR::UDPSocket& socket) {
        char byte = 0;
        socket.receive(&byte, 1);
        taken.set();
    };
    const Waiter waiter(sockets, take);
    for (auto _ : state) {
        sender.sendto(receiver, "x", 1);
        taken.wait();
    }
}

}  // namespace

void addWatches() {
    kFamily.addPlaced("byte to a task", AllLoops(), [](State& state, auto peer, int processor) {
        measureByte(state, peer, processor);
    });
    kFamily.addPlaced("byte between two loops", AllLoops(),
                      [](State& state, auto peer, int processor) {
                          measureBackAndForth(state, peer, processor);
                      });
    kFamily.addThreaded("100 of 1000 ready", AllLoops(),
                        [](State& state, auto peer) { measureReady(state, peer, 100); });
    for (const size_t sockets : {10, 1000}) {
        kFamily.addThreaded(
            "datagram to 1 of " + std::to_string(sockets) + " sockets",
            Peers<Watching<NivurLoop>, Watching<UvLoop>, Watching<AsioLoop>, Watching<EventLoop>,
                  Watching<GlibLoop>, Watching<LooperLoop>, Other<Waiting<NivurWait>>,
                  Other<Waiting<PollWait>>>(),
            [=](State& state, auto peer) { measureDatagram(state, peer, sockets); });
    }
    kFamily.addThreaded("add and remove", AllLoops(),
                        [](State& state, auto peer) { measureAddAndRemove(state, peer); });
}

}  // namespace bench
