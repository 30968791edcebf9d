#include "socket.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <utility>

#include "private/assertion.h"
#include "private/common/descriptor.h"
#include "private/common/socket_posix.h"
#include "private/saved_errno.h"

namespace NIVUR {

Socket::Socket(int socket) : _socket(socket < 0 ? -1 : socket), _isIPv6(platform::isIPv6(socket)) {}

Socket::Socket(const Socket& other)
    : _socket(platform::duplicate(other._socket)), _isIPv6(other._isIPv6) {}

// Assignments and the destructor close the descriptor alone: they call Socket::close(), not the
// overriding close() of a derived class, which resets more.

Socket& Socket::operator=(const Socket& other) {
    if (this != &other) {
        Socket::close();
        _socket = platform::duplicate(other._socket);
        _isIPv6 = other._isIPv6;
    }
    return *this;
}

Socket::Socket(Socket&& other) noexcept
    : _socket(std::exchange(other._socket, -1)),
      _logEnabled(other._logEnabled),
      _isIPv6(other._isIPv6) {}

Socket& Socket::operator=(Socket&& other) noexcept {
    if (this != &other) {
        Socket::close();
        _socket = std::exchange(other._socket, -1);
        _logEnabled = other._logEnabled;
        _isIPv6 = other._isIPv6;
    }
    return *this;
}

Socket::~Socket() {
    Socket::close();
}

void Socket::close() {
    if (_socket != -1) {
        closeSocket(_socket);
        _socket = -1;
    }
}

int Socket::setBroadcast(bool /*enable*/) {
    errno = EOPNOTSUPP;
    return -1;
}

bool Socket::createBound(const std::string& ip, uint16_t port, bool tcp) {
    if (_socket >= 0) {
        if (_logEnabled) {
            logLine(LOG_WARN, "socket is already created: ip=%s, port=%d", address().c_str(),
                    this->port());
        }
        errno = EEXIST;
        return false;
    }
    _socket = createSocket(ip, port, tcp);
    return _socket != -1;
}

int Socket::createSocket(const std::string& ip, uint16_t port, bool tcp) {
    prepareSocket();
    if (!isIPv6Address(ip, _isIPv6)) {
        return -1;
    }
    const SocketAddress address = platform::parseAddress(ip.c_str(), port, _isIPv6);
    if (!address.isValid()) {
        logLine(LOG_ERROR, "invalid socket address: ip=%s, port=%d", ip.c_str(), port);
        return -1;
    }
    const int socket = platform::open(address, tcp);
    if (socket == -1) {
        logLine(LOG_ERROR, "socket create failed, err=%d", getError());
        return -1;
    }
    if (platform::bind(socket, address) == -1) {
        const SavedErrno error;  // close() may change it
        logLine(LOG_ERROR, "socket bind failed, err=%d", error.number());
        closeSocket(socket);
        return -1;
    }
    return socket;
}

IoResult Socket::createBound(const SocketAddress& local, bool reuse, bool tcp) {
    if (_socket != -1) {
        errno = EEXIST;
        return platform::failure();
    }
    platform::Descriptor socket(platform::open(local, tcp));  // closed unless all succeeds
    if (socket.get() == -1 ||
        (reuse && platform::setOption(socket.get(), platform::Option::REUSE, 1) == -1) ||
        platform::bind(socket.get(), local) == -1) {
        return platform::failure();
    }
    _socket = socket.release();
    _isIPv6 = local.isIPv6();
    return {};
}

bool Socket::fillAddress(const std::string& ip, uint16_t port, void* address) const {
    const SocketAddress filled = platform::parseAddress(ip.c_str(), port, _isIPv6);
    std::memcpy(address, filled.data(), filled.size());
    return filled.isValid();
}

bool Socket::checkCreated(const char* kind) const {
    if (_socket == -1) {
        errno = EBADF;
        logLine(LOG_ERROR, "CHECK_%s failed because socket is not created", kind);
    }
    return _socket != -1;
}

void Socket::logLine(LogLevel level, const char* fmt, ...) const {
    if (_logEnabled) {
        const SavedErrno error;  // callers read it after the line
        va_list args;
        va_start(args, fmt);
        Log::vlog("NIVUR", level, fmt, args);
        va_end(args);
    }
}

std::string Socket::address() const {
    const SocketAddress address = checkCreated("SOCKET") ? localAddress() : SocketAddress();
    platform::AddressText text;
    return address.isValid() ? platform::addressText(address, text) : "";
}

uint16_t Socket::port() const {
    return checkCreated("SOCKET") ? localAddress().port() : uint16_t{0};
}

SocketAddress Socket::localAddress() const {
    return platform::localAddress(_socket);
}

SocketAddress Socket::peerAddress() const {
    return platform::peerAddress(_socket);
}

int Socket::select() const {
    return wait(std::nullopt);
}

int Socket::select(unsigned int timeout) const {
    return wait(std::optional(timeout));
}

int Socket::wait(std::optional<unsigned int> timeout) const {
    if (!checkCreated("SOCKET")) {
        return -1;
    }
    const int readable = platform::waitReadable(_socket, timeout);
    if (readable < 0) {
        logLine(LOG_DEBUG, "select breaks, socket=%d, errno=%d", _socket, getError());
        return -1;
    }
    return readable > 0 ? 0 : 1;
}

std::set<Socket*> Socket::waitMultipleSocket(const std::set<Socket*>& sockets,
                                             unsigned int timeout) {
    NIVUR_ASSERT(sockets.size() < FD_SETSIZE);
    // Sockets that are not created are in neither loop, so that indexes and sockets stay in step.
    platform::ReadSet watched;
    for (const Socket* socket : sockets) {
        if (socket->_socket != -1) {
            watched.add(socket->_socket);
        }
    }
    std::set<Socket*> readable;
    if (watched.wait(timeout) > 0) {
        size_t index = 0;
        for (Socket* socket : sockets) {
            if (socket->_socket != -1 && watched.isReadable(index++)) {
                readable.insert(readable.end(), socket);
            }
        }
    }
    return readable;
}

int Socket::setBlocking(bool blocking) {
    return platform::setBlocking(_socket, blocking);
}

int Socket::setReuse(bool reuse) {
    return platform::setOption(_socket, platform::Option::REUSE, reuse ? 1 : 0);
}

int Socket::setBufLength(unsigned int length) {
    if (!checkCreated("SOCKET")) {
        return 0;
    }
    const int value = static_cast<int>(length);
    if (platform::setOption(_socket, platform::Option::SEND_BUFFER, value) == -1) {
        return -1;
    }
    return platform::setOption(_socket, platform::Option::RECEIVE_BUFFER, value);
}

int Socket::sendBufferSize() const {
    return platform::getOption(_socket, platform::Option::SEND_BUFFER);
}

int Socket::receiveBufferSize() const {
    return platform::getOption(_socket, platform::Option::RECEIVE_BUFFER);
}

int Socket::setTrafficClass(unsigned int codePoint) {
    // The code point is the upper six bits of the byte; the lower two are for congestion
    // notification. Code points above 63 become 256, which is refused.
    return platform::setOption(_socket, _isIPv6, platform::FamilyOption::TRAFFIC_CLASS,
                               std::min(codePoint, 64U) << 2);
}

int Socket::setHopLimit(unsigned int hops) {
    return platform::setOption(_socket, _isIPv6, platform::FamilyOption::HOPS, hops);
}

int Socket::setSockCOS(int cos) {
    if (!checkCreated("SOCKET")) {
        return 0;
    }
    logLine(LOG_ERROR, "setSockCOS cos=%d", cos);
    return platform::setOption(_socket, platform::Option::PRIORITY, cos);
}

}  // namespace NIVUR
