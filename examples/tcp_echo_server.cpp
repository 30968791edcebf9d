// tcp_echo_server [IP [PORT [SECONDS]]]: sends back what its clients send, on one thread.

#include <nivur/nivur.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>

namespace {

using Clients = std::map<NIVUR::Socket*, std::unique_ptr<NIVUR::ClientSocket>>;

constexpr size_t kMaxClients = 1000;  // one wait accepts up to 1023 sockets

void printLine(int level, const char* fmt, va_list args) {
    if (level >= NIVUR::LOG_WARN) {
        std::vfprintf(stderr, fmt, args);
        std::fputc('\n', stderr);
    }
}

void welcome(NIVUR::ServerSocket& listener, Clients& clients) {
    std::unique_ptr<NIVUR::ClientSocket> client(listener.accept());
    if (client != nullptr && client->setBlocking(false) == 0) {
        NIVUR::Socket* const key = client.get();
        clients[key] = std::move(client);
    }
}

// Returns false if the client has closed, or does not read and must not delay the others.
bool echo(const NIVUR::ClientSocket& client) {
    char data[4096];
    unsigned int length = sizeof(data);
    unsigned int sent = 0;
    return client.recv(data, length) && client.send(data, length, &sent) && sent == length;
}

void serve(NIVUR::ServerSocket& listener, Clients& clients) {
    std::set<NIVUR::Socket*> sockets;
    for (const auto& client : clients) {
        sockets.insert(client.first);
    }
    if (clients.size() < kMaxClients) {
        sockets.insert(&listener);
    }
    for (NIVUR::Socket* socket : NIVUR::Socket::waitMultipleSocket(sockets, 100)) {
        if (socket == &listener) {
            welcome(listener, clients);
        } else if (!echo(*clients[socket])) {
            clients.erase(socket);  // closes it
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    NIVUR::Log::setCB(printLine);
    NIVUR::ServerSocket listener;
    if (!listener.create(
            argc > 1 ? argv[1] : "127.0.0.1",
            static_cast<uint16_t>(argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 7777)) ||
        listener.setBlocking(false) != 0 || !listener.listen(64)) {
        return 1;
    }
    std::printf("listening on port %u\n", unsigned{listener.port()});
    std::fflush(stdout);
    const uint64_t seconds = argc > 3 ? std::strtoul(argv[3], nullptr, 10) : UINT32_MAX;
    const uint64_t end = NIVUR::SystemUtil::getCPUTime() + seconds * 1000;
    Clients clients;
    while (NIVUR::SystemUtil::getCPUTime() < end) {
        serve(listener, clients);
    }
}
