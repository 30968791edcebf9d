// udp_ping [IP PORT]: measures round trips to a host that returns datagrams. Without arguments, a
// thread of this program returns them.

#include <nivur/nivur.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

void printLine(int level, const char* fmt, va_list args) {
    if (level >= NIVUR::LOG_WARN) {
        std::vfprintf(stderr, fmt, args);
        std::fputc('\n', stderr);
    }
}

// Returns every datagram to its sender until its thread is asked to stop.
void answer(const NIVUR::UDPSocket& socket, const NIVUR::Thread& thread) {
    char data[1500];
    std::string ip;
    uint16_t port = 0;
    while (!thread.isStopping()) {
        unsigned int length = sizeof(data);
        if (socket.select(100) == 0 && socket.recvfrom(ip, port, data, length)) {
            socket.sendto(ip, port, data, length, nullptr);
        }
    }
}

// Returns whether the datagram `number` came back within a second. Late answers to earlier
// datagrams do not count.
bool ping(const NIVUR::UDPSocket& socket, const std::string& ip, uint16_t port, int number) {
    if (!socket.sendto(ip, port, &number, sizeof(number), nullptr)) {
        return false;
    }
    while (socket.select(1000) == 0) {
        int answered = 0;
        unsigned int length = sizeof(answered);
        std::string from;
        uint16_t fromPort = 0;
        if (socket.recvfrom(from, fromPort, &answered, length) && answered == number) {
            return true;
        }
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    NIVUR::Log::setCB(printLine);
    NIVUR::UDPSocket responder;
    NIVUR::UDPSocket socket;
    const std::string ip = argc > 2 ? argv[1] : "127.0.0.1";
    const bool isIPv6 = ip.find(':') != std::string::npos;
    if (!responder.create("127.0.0.1", 0) || !socket.create(isIPv6 ? "::" : "0.0.0.0", 0)) {
        return 1;
    }
    const uint16_t port =
        argc > 2 ? static_cast<uint16_t>(std::strtoul(argv[2], nullptr, 10)) : responder.port();
    NIVUR::Thread thread;  // last: destroyed before the socket that it uses
    thread.start(NIVUR::makeRunnable([&] { answer(responder, thread); }), "responder");

    int lost = 0;
    for (int number = 1; number <= 10; ++number) {
        const uint64_t begin = NIVUR::SystemUtil::getCPUTimeInMicroseconds();
        const bool answered = ping(socket, ip, port, number);
        const uint64_t end = NIVUR::SystemUtil::getCPUTimeInMicroseconds();
        std::printf("%d: %s after %llu us\n", number, answered ? "answer" : "no answer",
                    static_cast<unsigned long long>(end - begin));
        lost += answered ? 0 : 1;
        NIVUR::SystemUtil::sleep(100);
    }
    thread.stop();
    return lost == 0 ? 0 : 1;
}
