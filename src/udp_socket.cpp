#include "udp_socket.h"

#include <cerrno>

#include "private/assertion.h"
#include "private/common/socket_posix.h"
#include "private/saved_errno.h"

namespace NIVUR {

bool UDPSocket::create(const std::string& ip, uint16_t port) {
    return createBound(ip, port, false);
}

IoResult UDPSocket::create(const SocketAddress& local, bool reuse) {
    return createBound(local, reuse, false);
}

int UDPSocket::setBroadcast(bool enable) {
    return platform::setOption(_socket, platform::Option::BROADCAST, enable ? 1 : 0);
}

int UDPSocket::joinGroup(const SocketAddress& group, unsigned int interfaceIndex) {
    return platform::setMembership(_socket, group, interfaceIndex, true);
}

int UDPSocket::leaveGroup(const SocketAddress& group, unsigned int interfaceIndex) {
    return platform::setMembership(_socket, group, interfaceIndex, false);
}

int UDPSocket::setMulticastHopLimit(unsigned int hops) {
    return platform::setOption(_socket, _isIPv6, platform::FamilyOption::MULTICAST_HOPS, hops);
}

IoResult UDPSocket::connect(const SocketAddress& peer) {
    return platform::complete([&] { return platform::connect(_socket, peer); });
}

IoResult UDPSocket::send(const void* data, size_t length) const {
    return platform::complete([&] { return platform::send(_socket, data, length); });
}

IoResult UDPSocket::receive(void* data, size_t length) const {
    SocketAddress sender;
    return recvfrom(sender, data, length);
}

IoResult UDPSocket::sendto(const SocketAddress& receiver, const void* data, size_t length) const {
    return platform::complete([&] { return platform::sendto(_socket, data, length, receiver); });
}

IoResult UDPSocket::recvfrom(SocketAddress& sender, void* data, size_t length) const {
    return platform::receiveDatagram(_socket, data, length, sender);
}

IoResult UDPSocket::sendDatagrams(const SocketAddress& receiver, const void* data, size_t length,
                                  size_t datagram) const {
    NIVUR_ASSERT(datagram > 0);
    if (_socket == -1) {
        errno = EBADF;
        return platform::failure();
    }
    return platform::sendDatagrams(_socket, receiver, data, length, datagram);
}

int UDPSocket::setCoalescing(bool coalescing) {
    return platform::setCoalescing(_socket, coalescing);
}

IoResult UDPSocket::receiveDatagrams(SocketAddress& sender, void* data, size_t length,
                                     size_t& datagram) const {
    return platform::receiveDatagrams(_socket, sender, data, length, datagram);
}

bool UDPSocket::sendto(const std::string& ip, uint16_t port, const void* data, unsigned long length,
                       unsigned int* sent) const {
    if (!checkCreated("UDP_SOCKET")) {
        return false;
    }
    NIVUR_ASSERT(data);
    const SocketAddress address = platform::parseAddress(ip.c_str(), port, _isIPv6);
    if (!address.isValid()) {
        logLine(LOG_ERROR, "invalid address: ip=%s, port=%d", ip.c_str(), port);
        return false;
    }
    const ptrdiff_t count = platform::sendto(_socket, data, length, address);
    const SavedErrno error;  // address() and port() may change it
    if (count == -1 && _logEnabled) {
        logLine(LOG_ERROR,
                "sendto() failed: socket=%d, data=%p, len=%u, local_ip=%s, local_port=%u, "
                "to_ip=%s, to_port=%u, err=%d",
                _socket, data, static_cast<unsigned int>(length), this->address().c_str(),
                this->port(), ip.c_str(), port, error.number());
    }
    if (sent != nullptr) {
        *sent = count == -1 ? 0 : static_cast<unsigned int>(count);
    }
    return count != -1;
}

bool UDPSocket::recvfrom(std::string& ip, uint16_t& port, void* data, unsigned int& length) const {
    if (!checkCreated("UDP_SOCKET")) {
        return false;
    }
    NIVUR_ASSERT(data);
    NIVUR_ASSERT(length > 0);
    SocketAddress sender;
    const ptrdiff_t count = platform::recvfrom(_socket, data, length, sender);
    if (count == -1) {
        logLine(LOG_ERROR, "recvfrom() failed: socket=%d, err=%d", _socket, getError());
        return false;
    }
    if (count == 0) {
        errno = 0;
        logLine(LOG_DEBUG, "socket closed gracefully: socket=%d", _socket);
        return false;
    }
    platform::AddressText text;
    ip = platform::addressText(sender, text);
    port = sender.port();
    length = static_cast<unsigned int>(count);
    return true;
}

}  // namespace NIVUR
