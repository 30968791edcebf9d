// Two sockets exchange datagrams.

#include <nivur/nivur.h>

#include <cstdio>
#include <string>

int main() {
    NIVUR::UDPSocket alice;
    NIVUR::UDPSocket bob;
    if (!alice.create("127.0.0.1", 0) || !bob.create("127.0.0.1", 0)) {
        return 1;
    }
    const std::string text = "a datagram arrives whole, or not at all";
    alice.sendto("127.0.0.1", bob.port(), text.data(), text.size(), nullptr);

    std::string from;
    uint16_t port = 0;
    char data[1500];
    unsigned int length = sizeof(data);  // in: the room; out: the bytes received
    if (bob.select(5000) != 0 || !bob.recvfrom(from, port, data, length)) {
        return 1;
    }
    std::printf("%.*s\n", static_cast<int>(length), data);
    std::printf("from %s, the sender's own port: %s\n", from.c_str(),
                port == alice.port() ? "yes" : "no");
    return std::string(data, length) == text && port == alice.port() ? 0 : 1;
}
