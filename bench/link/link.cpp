/// nivur_link: emulates a link between two network namespaces. It opens a TUN device in each and
/// forwards IP packets between them; its options set delay, rate, reordering and loss. It needs
/// root, but no kernel module except TUN. link.py makes the namespaces.

#include <fcntl.h>
#include <linux/if.h>
#include <linux/if_tun.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <iterator>
#include <queue>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

namespace {

const char kUsage[] =
    "usage: nivur_link NAMESPACE-A NAMESPACE-B [OPTION VALUE]...\n"
    "\n"
    "Opens a TUN device named link0 in each of the two network namespaces (names as of ip netns)\n"
    "and carries IP packets between them until SIGINT or SIGTERM; then prints counters as JSON.\n"
    "Says \"ready\" once the devices are there. Every value holds for both directions; two of "
    "them,\n"
    "X,Y, hold from A to B and from B to A.\n"
    "\n"
    "  rate MBIT       bits of IP packets that pass in a microsecond; 0: no limit (default)\n"
    "  queue PACKETS   how many may wait for their turn, or be in it; more are lost (1000)\n"
    "  delay MS        from the end of its turn until a packet arrives (0)\n"
    "  jitter MS       at most so much more, evenly distributed (0)\n"
    "  jitter-order 0  packets may overtake one another by jitter; 1: they wait for it (1)\n"
    "  loss PERCENT    of the packets that had their turn, at random (0)\n"
    "  burst PACKETS   losses are this many packets in a row, at least 1 (1)\n"
    "  gilbert 1       burst is a mean and the lengths are geometric, as of a Gilbert channel (0)\n"
    "  reorder PERCENT of the packets come late and are overtaken (0)\n"
    "  reorder-by MS   by so much (2)\n"
    "  block-udp 1     no UDP passes (0)\n"
    "  seed NUMBER     of the random numbers: the same decisions in the same order (1)\n";

constexpr std::size_t kMaxPacket = 9000;
constexpr int kBatch = 32;  // packets read before due ones are delivered

using Nanoseconds = std::int64_t;

/// The properties of one direction of the link; see kUsage.
struct Conditions {
    double rate = 0, queue = 1000, delay = 0, jitter = 0, jitterOrder = 1, loss = 0, burst = 1;
    double gilbert = 0, reorder = 0, reorderBy = 2, blockUdp = 0, seed = 1;
};

constexpr std::pair<std::string_view, double Conditions::*> kOptions[] = {
    {"rate", &Conditions::rate},
    {"queue", &Conditions::queue},
    {"delay", &Conditions::delay},
    {"jitter", &Conditions::jitter},
    {"jitter-order", &Conditions::jitterOrder},
    {"loss", &Conditions::loss},
    {"burst", &Conditions::burst},
    {"gilbert", &Conditions::gilbert},
    {"reorder", &Conditions::reorder},
    {"reorder-by", &Conditions::reorderBy},
    {"block-udp", &Conditions::blockUdp},
    {"seed", &Conditions::seed},
};

volatile std::sig_atomic_t stopped = 0;

Nanoseconds now() {
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * Nanoseconds{1000000000} + time.tv_nsec;
}

/// Throws the error in errno if `result` is -1.
int checked(int result, const char* what) {
    if (result == -1) throw std::system_error(errno, std::generic_category(), what);
    return result;
}

/// Opens the TUN device of a network namespace. The process is in that namespace afterwards.
int openTun(const std::string& name) {
    const std::string path = "/run/netns/" + name;
    const int space = checked(::open(path.c_str(), O_RDONLY | O_CLOEXEC), path.c_str());
    checked(::setns(space, CLONE_NEWNET), "setns");
    ::close(space);
    const int device = checked(::open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC), "tun");
    ifreq request{};
    request.ifr_flags = IFF_TUN | IFF_NO_PI;
    std::strcpy(request.ifr_name, "link0");
    checked(::ioctl(device, TUNSETIFF, &request), "TUNSETIFF");
    return device;
}

struct Count {
    void add(std::size_t size) { packets++, bytes += size; }
    std::uint64_t packets = 0, bytes = 0;
};

/// Counts what happened to the packets of one protocol in one direction.
struct Counters {
    Count in, out, lost, overflowed, blocked, failed;
};

struct Packet {
    bool operator<(const Packet& other) const {  // puts the earliest on top of a priority queue
        return std::tie(other.due, other.number) < std::tie(due, number);
    }

    Nanoseconds due;
    std::uint64_t number;
    std::vector<char> bytes;
    Counters* counters;
};

enum Protocol { TCP, UDP, OTHER };

Protocol protocolOf(const std::vector<char>& packet) {
    const bool v6 = static_cast<unsigned char>(packet[0]) >> 4 == 6;
    const int protocol = packet.size() < 20 ? 0 : packet[v6 ? 6 : 9];
    return protocol == IPPROTO_TCP ? TCP : protocol == IPPROTO_UDP ? UDP : OTHER;
}

Nanoseconds fromMilliseconds(double value) {
    return std::llround(value * 1e6);
}

/// One direction of the link. A packet waits in the queue, is transmitted at the bottleneck's rate,
/// may then be lost (as on a radio link, a lost packet has used the link), and is delayed.
class Direction {
  public:
    Direction(const Conditions& conditions, std::uint64_t salt, int from, int to)
        : _is(conditions),
          _from(from),
          _to(to),
          _random(2 * static_cast<std::uint64_t>(conditions.seed) + salt) {}

    /// Reads up to a batch of packets from the source.
    void receive() {
        for (int i = 0; i < kBatch; i++) {
            const ssize_t size = ::read(_from, _input.data(), _input.size());
            if (size <= 0) return;
            std::vector<char> packet = takeStorage();
            packet.assign(_input.data(), _input.data() + size);
            accept(std::move(packet), now());
        }
    }

    /// Delivers the packets that are due.
    void deliver() {
        while (!_travelling.empty() && _travelling.top().due <= now()) {
            auto& packet = const_cast<Packet&>(_travelling.top());  // popped at once
            const ssize_t written = ::write(_to, packet.bytes.data(), packet.bytes.size());
            (written < 0 ? packet.counters->failed : packet.counters->out).add(packet.bytes.size());
            _storage.push_back(std::move(packet.bytes));
            _travelling.pop();
        }
    }

    /// When the next packet is due; INT64_MAX if there is none.
    Nanoseconds due() const { return _travelling.empty() ? INT64_MAX : _travelling.top().due; }

    const std::array<Counters, 3>& counters() const { return _counters; }

  private:
    void accept(std::vector<char> packet, Nanoseconds time) {
        const Protocol protocol = protocolOf(packet);
        Counters& counters = _counters[protocol];
        counters.in.add(packet.size());
        if (protocol == UDP && _is.blockUdp != 0) {
            counters.blocked.add(packet.size());
        } else if (!enterQueue(packet.size(), time)) {
            counters.overflowed.add(packet.size());
        } else if (isLost()) {
            counters.lost.add(packet.size());
        } else {
            _travelling.push({arrival(), _sequence++, std::move(packet), &counters});
            return;
        }
        _storage.push_back(std::move(packet));
    }

    /// Computes when the bottleneck will have sent the packet; false if the queue is full.
    bool enterQueue(std::size_t size, Nanoseconds time) {
        while (!_queue.empty() && _queue.front() <= time) {
            _queue.pop_front();
        }
        if (_is.rate > 0 && static_cast<double>(_queue.size()) >= _is.queue) return false;
        _sent = std::max(_sent, time);
        if (_is.rate > 0) {
            _sent += std::llround(static_cast<double>(size) * 8000 / _is.rate);
            _queue.push_back(_sent);
        }
        return true;
    }

    bool isLost() {
        if (_leftOfBurst == 0) {
            const double share = _is.loss / 100;
            if (share <= 0 || !happens(share / (_is.burst * (1 - share) + share))) return false;
            _leftOfBurst = burstLength();
        }
        _leftOfBurst--;
        return true;
    }

    std::uint64_t burstLength() {
        if (_is.gilbert == 0) return static_cast<std::uint64_t>(_is.burst);
        return 1 + std::geometric_distribution<std::uint64_t>(1 / _is.burst)(_random);
    }

    /// The arrival time of the packet that entered the queue last.
    Nanoseconds arrival() {
        Nanoseconds due = _sent + fromMilliseconds(_is.delay);
        if (_is.jitter > 0) {
            due += fromMilliseconds(std::uniform_real_distribution<>(0, _is.jitter)(_random));
            if (_is.jitterOrder != 0) due = _lastDue = std::max(due, _lastDue);
        }
        return due + (happens(_is.reorder / 100) ? fromMilliseconds(_is.reorderBy) : 0);
    }

    bool happens(double probability) {
        return probability > 0 && std::uniform_real_distribution<>()(_random) < probability;
    }

    std::vector<char> takeStorage() {
        if (_storage.empty()) return {};
        std::vector<char> taken = std::move(_storage.back());
        _storage.pop_back();
        return taken;
    }

    const Conditions _is;
    const int _from, _to;
    std::mt19937_64 _random;
    std::array<char, kMaxPacket> _input{};
    std::array<Counters, 3> _counters;
    std::deque<Nanoseconds> _queue;  // when each packet in it will have been sent
    std::priority_queue<Packet> _travelling;
    std::vector<std::vector<char>> _storage;  // reused memory of delivered packets
    Nanoseconds _sent = 0, _lastDue = 0;
    std::uint64_t _sequence = 0, _leftOfBurst = 0;
};

double toValue(const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(value >= 0)) {
        throw std::invalid_argument("bad value: " + text);
    }
    return value;
}

/// Parses the options: the conditions from A to B, and those from B to A.
std::array<Conditions, 2> parse(int count, char** arguments) {
    std::array<Conditions, 2> both;
    for (int i = 0; i < count; i += 2) {
        const std::string_view name = arguments[i];
        const auto option = std::find_if(std::begin(kOptions), std::end(kOptions),
                                         [name](const auto& known) { return known.first == name; });
        if (option == std::end(kOptions) || i + 1 == count) throw std::invalid_argument(kUsage);
        const std::string value = arguments[i + 1];
        const std::size_t comma = value.find(',');
        const bool same = comma == std::string::npos;
        both[0].*option->second = toValue(value.substr(0, comma));
        both[1].*option->second = toValue(same ? value : value.substr(comma + 1));
    }
    if (both[0].burst < 1 || both[1].burst < 1) throw std::invalid_argument("bad value: burst");
    return both;
}

/// Forwards packets until a signal arrives. Signals are blocked except in ppoll(), so that none is
/// missed between the check of `stopped` and the wait.
void carry(std::array<Direction, 2>& link, pollfd (&devices)[2], const sigset_t& waiting) {
    while (stopped == 0) {
        const Nanoseconds left =
            std::max<Nanoseconds>(std::min(link[0].due(), link[1].due()) - now(), 0);
        const timespec timeout{static_cast<time_t>(left / 1000000000),
                               static_cast<long>(left % 1000000000)};
        if (::ppoll(devices, 2, &timeout, &waiting) < 0 && errno != EINTR) return;
        for (Direction& direction : link) {
            direction.receive();
            direction.deliver();
        }
    }
}

void print(const char* name, const Direction& direction, const char* end) {
    static const char* const kProtocols[] = {"tcp", "udp", "other"};
    std::printf("\"%s\": {", name);
    for (int protocol = TCP; protocol <= OTHER; protocol++) {
        const Counters& counters = direction.counters()[static_cast<std::size_t>(protocol)];
        std::printf("%s\"%s\": {", protocol == TCP ? "" : ", ", kProtocols[protocol]);
        const std::pair<const char*, Count> shown[] = {
            {"in", counters.in},           {"out", counters.out},
            {"lost", counters.lost},       {"overflowed", counters.overflowed},
            {"blocked", counters.blocked}, {"failed", counters.failed}};
        const char* separator = "";
        for (const auto& [what, count] : shown) {
            std::printf("%s\"%s\": {\"packets\": %llu, \"bytes\": %llu}", separator, what,
                        static_cast<unsigned long long>(count.packets),
                        static_cast<unsigned long long>(count.bytes));
            separator = ", ";
        }
        std::printf("}");
    }
    std::printf("}%s", end);
}

/// Blocks the signals that end the program. Returns the signal mask for ppoll(), which lets them
/// in.
sigset_t stopBySignals() {
    sigset_t ending, waiting;
    sigemptyset(&ending);
    for (const int number : {SIGINT, SIGTERM}) {
        sigaddset(&ending, number);
        std::signal(number, [](int) { stopped = 1; });
    }
    ::sigprocmask(SIG_BLOCK, &ending, &waiting);
    return waiting;
}

/// Requests real-time scheduling, so that packets are on time when the processor is busy.
void becomeUrgent() {
    ::prctl(PR_SET_TIMERSLACK, 1);
    sched_param parameters{};
    parameters.sched_priority = 1;
    checked(::sched_setscheduler(0, SCHED_FIFO, &parameters), "sched_setscheduler");
}

int run(int count, char** arguments) {
    if (count < 3) throw std::invalid_argument(kUsage);
    const std::array<Conditions, 2> conditions = parse(count - 3, arguments + 3);
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    const sigset_t waiting = stopBySignals();
    const int a = openTun(arguments[1]), b = openTun(arguments[2]);
    std::array<Direction, 2> link = {Direction(conditions[0], 0, a, b),
                                     Direction(conditions[1], 1, b, a)};
    becomeUrgent();
    std::puts("ready");
    std::fflush(stdout);
    pollfd devices[] = {{a, POLLIN, 0}, {b, POLLIN, 0}};
    carry(link, devices, waiting);
    std::printf("{");
    print("a_to_b", link[0], ", ");
    print("b_to_a", link[1], "}\n");
    return 0;
}

}  // namespace

int main(int count, char** arguments) {
    try {
        return run(count, arguments);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "nivur_link: %s\n", error.what());
        return 1;
    }
}
