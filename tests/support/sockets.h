#ifndef NIVUR_TESTS_SUPPORT_SOCKETS_H
#define NIVUR_TESTS_SUPPORT_SOCKETS_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <nivur/nivur.h>
#include <poll.h>
#include <sys/socket.h>

#include <filesystem>
#include <fstream>

#include "io_results.h"

namespace NIVUR {

const char* const kLocal = "127.0.0.1";
const SocketAddress kAnyPort(kLocal, 0);

inline ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/// The loopback address of each family that this host has.
inline std::vector<std::string> families() {
    const bool hasIPv6 = std::ifstream("/proc/net/if_inet6").peek() != EOF;
    return hasIPv6 ? std::vector<std::string>{kLocal, "::1"} : std::vector<std::string>{kLocal};
}

template <class... Sockets>
void createAll(const SocketAddress& local, Sockets&... sockets) {
    int index = 0;
    const auto create = [&](auto& socket) {
        EXPECT_EQ(socket.create(local), done()) << "socket " << index << " at " << local.ip();
        ++index;
    };
    (create(sockets), ...);
}

inline bool waitFor(const Socket& socket, short events, int timeout = 5000) {
    pollfd entry{socket.descriptor(), events, 0};
    return poll(&entry, 1, timeout) == 1;
}

inline IoResult connectWithin(ClientSocket& client, const SocketAddress& to, int timeout = 5000) {
    const IoResult begun = client.connect(to);
    return begun == kWouldBlock && waitFor(client, POLLOUT, timeout) ? client.finishConnect()
                                                                     : begun;
}

inline void expectPeer(const ClientSocket& client, const std::string& ip, uint16_t port) {
    EXPECT_EQ(std::tuple(client.remoteAddress(), client.remotePort()), std::tuple(ip, port));
}

/// Sockets are closed in programs that the process starts, and block by default.
inline void expectFlags(const std::vector<const Socket*>& sockets) {
    for (const Socket* const socket : sockets) {
        EXPECT_EQ(fcntl(socket->descriptor(), F_GETFD), FD_CLOEXEC);
        EXPECT_EQ(fcntl(socket->descriptor(), F_GETFL) & O_NONBLOCK, 0);
    }
}

struct Connection {
    explicit Connection(const std::string& local = kLocal) {
        EXPECT_TRUE(listener.create(local, 0));
        EXPECT_TRUE(listener.listen(5));
        EXPECT_TRUE(client.create(local, 0));
        EXPECT_TRUE(client.connect(local, listener.port()));
        EXPECT_EQ(listener.select(1000), 0);
        accepted.reset(listener.accept());
    }
    void reset() {  // resets the connection
        const linger abort{1, 0};
        setsockopt(accepted->descriptor(), SOL_SOCKET, SO_LINGER, &abort, sizeof(abort));
        accepted.reset();
    }
    ServerSocket listener;
    ClientSocket client;
    std::unique_ptr<ClientSocket> accepted;
};

}  // namespace NIVUR

#endif
