// tcp_echo_client IP PORT [SECONDS]: sends messages to an echo server and checks its answers.

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

// send() and recv() may transfer only a part; these repeat them until all is transferred.
bool sendAll(const NIVUR::ClientSocket& socket, const std::string& data) {
    unsigned int sent = 0;
    for (size_t done = 0; done < data.size(); done += sent) {
        if (!socket.send(&data[done], static_cast<unsigned int>(data.size() - done), &sent)) {
            return false;
        }
    }
    return true;
}

bool recvAll(const NIVUR::ClientSocket& socket, std::string& data) {
    unsigned int received = 0;
    for (size_t done = 0; done < data.size(); done += received) {
        received = static_cast<unsigned int>(data.size() - done);
        if (socket.select(1000) != 0 || !socket.recv(&data[done], received)) {
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: tcp_echo_client IP PORT [SECONDS]\n");
        return 2;
    }
    NIVUR::Log::setCB(printLine);
    const std::string ip = argv[1];
    const bool isIPv6 = ip.find(':') != std::string::npos;
    NIVUR::ClientSocket socket;
    if (!socket.create(isIPv6 ? "::" : "0.0.0.0", 0) ||
        !socket.connect(ip, static_cast<uint16_t>(std::strtoul(argv[2], nullptr, 10)))) {
        return 1;
    }
    const uint64_t end = NIVUR::SystemUtil::getCPUTime() +
                         (argc > 3 ? std::strtoul(argv[3], nullptr, 10) : 1) * 1000;
    unsigned int count = 0;
    while (NIVUR::SystemUtil::getCPUTime() < end) {
        const std::string message = "message " + std::to_string(++count);
        std::string answer(message.size(), '\0');
        if (!sendAll(socket, message) || !recvAll(socket, answer) || answer != message) {
            std::fprintf(stderr, "no echo of message %u\n", count);
            return 1;
        }
    }
    std::printf("%u messages came back from %s\n", count, socket.remoteAddress().c_str());
}
