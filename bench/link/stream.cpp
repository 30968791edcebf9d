/// nivur_stream: generates a live stream, and checks the received one. Both ends run on one machine
/// and so use the same clock.

#include <arpa/inet.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace {

const char kUsage[] =
    "usage: nivur_stream source MBIT SECONDS [PORT]\n"
    "       nivur_stream sink [PORT]\n"
    "\n"
    "The source writes chunks of 1,316 bytes, seven packets of an MPEG transport stream, at an "
    "even\n"
    "pace to standard output, or as datagrams to the port of 127.0.0.1. The sink reads them from\n"
    "standard input or the port until the end or SIGTERM. Then it prints a line for each chunk,\n"
    "\"NUMBER DELAY\" in microseconds, in order of arrival, and \"wrong COUNT\" for the others.\n";

constexpr std::size_t kChunk = 1316, kTransportPacket = 188;

volatile std::sig_atomic_t stopped = 0;

std::int64_t now() {
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * std::int64_t{1000000000} + time.tv_nsec;
}

/// The header of a chunk. The rest of the chunk is derived from `number`.
struct Stamp {
    std::uint8_t sync[4];
    std::uint32_t number;
    std::int64_t sent;
};

using Chunk = std::uint8_t[kChunk];

void fill(Chunk& chunk, std::uint32_t number, std::int64_t sent) {
    std::uint32_t state = number;
    for (std::uint8_t& byte : chunk) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
    for (std::size_t i = 0; i < kChunk; i += kTransportPacket) {
        chunk[i] = 0x47;  // sync byte and the rest of a header: payload, PID 0x100
        chunk[i + 1] = 0x01;
        chunk[i + 2] = 0x00;
        chunk[i + 3] = 0x10;
    }
    std::memcpy(chunk + offsetof(Stamp, number), &number, sizeof number);
    std::memcpy(chunk + offsetof(Stamp, sent), &sent, sizeof sent);
}

sockaddr_in loopback(const char* port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(std::strtoul(port, nullptr, 10)));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int source(double mbit, double seconds, const char* port) {
    int output = STDOUT_FILENO;
    if (port != nullptr) {
        output = ::socket(AF_INET, SOCK_DGRAM, 0);
        const sockaddr_in address = loopback(port);
        if (::connect(output, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            std::perror("nivur_stream: connect");
            return 1;
        }
    }
    const auto interval = static_cast<std::int64_t>(kChunk * 8000 / mbit);
    const auto count = static_cast<std::uint32_t>(seconds * 1e9 / static_cast<double>(interval));
    const std::int64_t start = now();
    for (std::uint32_t number = 0; number < count; number++) {
        const std::int64_t due = start + number * interval;
        const timespec until{static_cast<time_t>(due / 1000000000),
                             static_cast<long>(due % 1000000000)};
        ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
        Chunk chunk;
        fill(chunk, number, now());
        if (::write(output, chunk, kChunk) < 0 && errno != ECONNREFUSED) {
            std::perror("nivur_stream: write");
            return 1;
        }
    }
    return 0;
}

struct Arrival {
    std::uint32_t number;
    std::int64_t delay;  // in nanoseconds
};

/// Splits a stream of bytes or datagrams into chunks and checks them.
class Sink {
  public:
    void take(const std::uint8_t* bytes, std::size_t size) {
        const std::int64_t time = now();
        _rest.insert(_rest.end(), bytes, bytes + size);
        std::size_t used = 0;
        for (; _rest.size() - used >= kChunk; used += kChunk) {
            check(_rest.data() + used, time);
        }
        _rest.erase(_rest.begin(), _rest.begin() + static_cast<std::ptrdiff_t>(used));
    }

    void print() const {
        for (const Arrival& arrival : _arrivals) {
            std::printf("%u %lld\n", arrival.number, static_cast<long long>(arrival.delay / 1000));
        }
        std::printf("wrong %u\n", _wrong + (_rest.empty() ? 0 : 1));
    }

  private:
    void check(const std::uint8_t* bytes, std::int64_t time) {
        Stamp stamp;
        std::memcpy(&stamp, bytes, sizeof stamp);
        Chunk expected;
        fill(expected, stamp.number, stamp.sent);
        if (std::memcmp(bytes, expected, kChunk) != 0) {
            _wrong++;
        } else {
            _arrivals.push_back({stamp.number, time - stamp.sent});
        }
    }

    std::vector<std::uint8_t> _rest;  // the beginning of a chunk
    std::vector<Arrival> _arrivals;
    unsigned int _wrong = 0;
};

int sink(const char* port) {
    int input = STDIN_FILENO;
    if (port != nullptr) {
        input = ::socket(AF_INET, SOCK_DGRAM, 0);
        const int room = 4 << 20;
        ::setsockopt(input, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
        const sockaddr_in address = loopback(port);
        if (::bind(input, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            std::perror("nivur_stream: bind");
            return 1;
        }
    }
    Sink sink;
    std::vector<std::uint8_t> bytes(65536);
    while (stopped == 0) {
        const ssize_t size = ::read(input, bytes.data(), bytes.size());
        if (size == 0 || (size < 0 && errno != EINTR)) break;
        if (size > 0) sink.take(bytes.data(), static_cast<std::size_t>(size));
    }
    sink.print();
    return 0;
}

/// Makes SIGTERM interrupt a read: the handler is installed without SA_RESTART.
void stopBySignal() {
    struct sigaction action {};
    action.sa_handler = [](int) { stopped = 1; };
    ::sigaction(SIGTERM, &action, nullptr);
}

}  // namespace

int main(int count, char** arguments) {
    ::prctl(PR_SET_TIMERSLACK, 1);
    const std::string mode = count > 1 ? arguments[1] : "";
    if (mode == "source" && (count == 4 || count == 5)) {
        return source(std::strtod(arguments[2], nullptr), std::strtod(arguments[3], nullptr),
                      arguments[4]);
    }
    if (mode == "sink" && (count == 2 || count == 3)) {
        stopBySignal();
        return sink(arguments[2]);
    }
    std::fputs(kUsage, stderr);
    return 2;
}
