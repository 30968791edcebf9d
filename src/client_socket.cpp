#include "client_socket.h"

#include <cerrno>
#include <utility>

#include "private/assertion.h"
#include "private/common/socket_posix.h"

namespace NIVUR {

ClientSocket::ClientSocket(int socket, const std::string& remoteIP, uint16_t remotePort)
    : Socket(socket), _remoteIP(remoteIP), _remotePort(remotePort) {}

ClientSocket::ClientSocket(const ClientSocket& other)
    : Socket(other), _deprecated(other._deprecated) {
    if (_socket != -1) {
        _remoteIP = other._remoteIP;
        _remotePort = other._remotePort;
    }
}

ClientSocket& ClientSocket::operator=(const ClientSocket& other) {
    if (this == &other) {
        return *this;
    }
    std::string remoteIP = other._remoteIP;  // may throw, so before anything changes
    Socket::operator=(other);
    const bool connected = _socket != -1;
    _remoteIP = connected ? std::move(remoteIP) : std::string();
    _remotePort = connected ? other._remotePort : uint16_t{0};
    _deprecated = other._deprecated;
    return *this;
}

ClientSocket::ClientSocket(ClientSocket&& other) noexcept
    : Socket(std::move(other)),
      _remoteIP(std::exchange(other._remoteIP, {})),
      _remotePort(std::exchange(other._remotePort, uint16_t{0})),
      _deprecated(other._deprecated) {}

ClientSocket& ClientSocket::operator=(ClientSocket&& other) noexcept {
    if (this != &other) {
        _remoteIP = std::exchange(other._remoteIP, {});
        _remotePort = std::exchange(other._remotePort, uint16_t{0});
        _deprecated = other._deprecated;
        Socket::operator=(std::move(other));
    }
    return *this;
}

bool ClientSocket::create(const std::string& ip, uint16_t port) {
    return createBound(ip, port, true);
}

IoResult ClientSocket::create(const SocketAddress& local, bool reuse) {
    return createBound(local, reuse, true);
}

void ClientSocket::close() {
    Socket::close();
    _remoteIP.clear();
    _remotePort = 0;
    _deprecated = true;
}

bool ClientSocket::connect(const std::string& ip, uint16_t port) {
    if (!checkCreated("CLIENT_SOCKET")) {
        return false;
    }
    if (!_remoteIP.empty() || _remotePort != 0) {
        logLine(LOG_WARN, "connect failed, socket already connected to ip=%s, port=%d",
                _remoteIP.c_str(), _remotePort);
        errno = EISCONN;
        return false;
    }
    const SocketAddress address = platform::parseAddress(ip.c_str(), port, _isIPv6);
    if (!address.isValid()) {
        logLine(LOG_ERROR, "invalid address: ip=%s, port=%d", ip.c_str(), port);
        return false;
    }
    std::string remoteIP = ip;  // may throw, so before the call
    if (platform::connect(_socket, address) == -1) {
        logLine(LOG_ERROR, "connect() failed: socket=%d, remoteIP=%s, remotePort=%d, err=%d",
                _socket, ip.c_str(), port, getError());
        return false;
    }
    _remoteIP = std::move(remoteIP);
    _remotePort = port;
    return true;
}

IoResult ClientSocket::connect(const SocketAddress& peer) {
    std::string remoteIP = peer.ip();  // may throw, so before the call
    const IoResult result = platform::complete([&] { return platform::connect(_socket, peer); });
    if (result) {
        _remoteIP = std::move(remoteIP);
        _remotePort = peer.port();
    }
    return result;
}

IoResult ClientSocket::finishConnect() {
    const SocketAddress peer = peerAddress();
    if (peer.isValid()) {
        _remoteIP = peer.ip();
        _remotePort = peer.port();
        return {};
    }
    if (errno != ENOTCONN) {
        return platform::failure();
    }
    // The peer is unknown: the connection has failed, is in progress, or was never begun. The state
    // is read before the pending error, because a connection that fails between the two calls is
    // then still reported by its own error number.
    const bool idle = platform::isIdle(_socket);
    const int error = platform::takeError(_socket);
    return error == 0 && !idle ? IoResult{IoResult::WOULD_BLOCK}
                               : IoResult{IoResult::FAILED, 0, error != 0 ? error : ENOTCONN};
}

IoResult ClientSocket::send(const void* data, size_t length) const {
    return platform::complete([&] { return platform::send(_socket, data, length); });
}

IoResult ClientSocket::receive(void* data, size_t length) const {
    const IoResult received =
        platform::complete([&] { return platform::recv(_socket, data, length); });
    return received && received.count == 0 && length > 0 ? IoResult{IoResult::CLOSED} : received;
}

int ClientSocket::setNoDelay(bool noDelay) {
    return platform::setNoDelay(_socket, noDelay);
}

bool ClientSocket::checkConnected() const {
    if (!checkCreated("CLIENT_SOCKET")) {
        return false;
    }
    if (_remoteIP.empty() || _remotePort == 0) {
        errno = ENOTCONN;
        logLine(LOG_ERROR, "CHECK_CLIENT_CONNECT failed because socket is not connected");
        return false;
    }
    return true;
}

bool ClientSocket::send(const void* data, unsigned int length, unsigned int* sent) const {
    if (!checkConnected()) {
        return false;
    }
    NIVUR_ASSERT(data);
    const ptrdiff_t count = platform::send(_socket, data, length);
    if (count == -1) {
        logLine(LOG_TRACE, "send data failed: socket=%d, err=%d", _socket, getError());
        return false;
    }
    if (sent != nullptr) {
        *sent = static_cast<unsigned int>(count);
    }
    return true;
}

bool ClientSocket::recv(void* data, unsigned int& length) const {
    if (!checkConnected()) {
        return false;
    }
    NIVUR_ASSERT(data);
    const ptrdiff_t count = platform::recv(_socket, data, length);
    if (count == -1) {
        logLine(LOG_DEBUG, "recv data failed: socket=%d, err=%d", _socket, getError());
        return false;
    }
    const bool closed = count == 0 && length > 0;  // receiving 0 bytes returns 0 as well
    length = static_cast<unsigned int>(count);
    if (closed) {
        errno = 0;
        logLine(LOG_DEBUG, "socket closed when recv(): socket=%d", _socket);
        return false;
    }
    return true;
}

int ClientSocket::shutdown() {
    return platform::shutdown(_socket);
}

}  // namespace NIVUR
