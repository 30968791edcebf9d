// Two sockets exchange datagrams.

#include <nivur/nivur.h>

#include <cstdio>
#include <string>

using NIVUR::SocketAddress;

int main() {
    NIVUR::UDPSocket alice;
    NIVUR::UDPSocket bob;
    const SocketAddress anyPort("127.0.0.1", 0);  // the system chooses one
    if (!alice.create(anyPort) || !bob.create(anyPort)) {
        return 1;
    }
    const std::string text = "a datagram arrives whole, or not at all";
    const SocketAddress toBob = bob.localAddress();  // made once for any number of datagrams
    alice.sendto(toBob, text.data(), text.size());

    char data[1500];
    SocketAddress sender;
    if (bob.select(5000) != 0) {
        return 1;
    }
    const NIVUR::IoResult received = bob.recvfrom(sender, data, sizeof(data));
    if (!received) {
        std::printf("error %d\n", received.error);
        return 1;
    }
    std::printf("%.*s\n", static_cast<int>(received.count), data);
    std::printf("from %s, the sender's own port: %s\n", sender.ip().c_str(),
                sender == alice.localAddress() ? "yes" : "no");
    return std::string(data, received.count) == text ? 0 : 1;
}
