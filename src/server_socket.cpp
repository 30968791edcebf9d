#include "server_socket.h"

#include "private/assertion.h"
#include "private/common/descriptor.h"
#include "private/common/socket_posix.h"
#include "private/saved_errno.h"

namespace NIVUR {

bool ServerSocket::create(const std::string& ip, uint16_t port) {
    return createBound(ip, port, true);
}

IoResult ServerSocket::create(const SocketAddress& local, bool reuse) {
    return createBound(local, reuse, true);
}

void ServerSocket::close() {
    Socket::close();
}

bool ServerSocket::listen(unsigned int count) const {
    if (!checkCreated("SERVER_SOCKET")) {
        return false;
    }
    NIVUR_ASSERT(count > 0);
    if (platform::listen(_socket, count) != 0) {
        const SavedErrno error;
        logLine(LOG_ERROR, "listen failed: socket=%d, ip=%s, port=%d, err=%d", _socket,
                address().c_str(), port(), error.number());
        return false;
    }
    return true;
}

ClientSocket* ServerSocket::accept() {
    if (!checkCreated("SERVER_SOCKET")) {
        return nullptr;
    }
    SocketAddress peer;
    platform::Descriptor connection(platform::accept(_socket, peer));
    if (connection.get() == -1) {
        const SavedErrno error;
        logLine(LOG_ERROR, "accept() failed: socket=%d, ip=%s, port=%d, err=%d", _socket,
                address().c_str(), port(), error.number());
        return nullptr;
    }
    platform::AddressText text;
    const std::string remoteIP = platform::addressText(peer, text);
    // `new` allocates before it evaluates release(): if it throws, the Descriptor still closes the
    // connection.
    return new ClientSocket(connection.release(), remoteIP, peer.port());
}

IoResult ServerSocket::accept(ClientSocket& connection) const {
    SocketAddress peer;
    const IoResult accepted = platform::complete([&] { return platform::accept(_socket, peer); });
    if (!accepted) {
        return accepted;
    }
    platform::Descriptor descriptor(static_cast<int>(accepted.count));
    const std::string remoteIP = peer.ip();
    connection = ClientSocket(descriptor.release(), remoteIP, peer.port());
    return {};
}

}  // namespace NIVUR
