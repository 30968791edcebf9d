#include "udp_socket.h"

#include "private/assertion.h"
#include "private/common/socket_posix.h"
#include "private/kept_error.h"

namespace NIVUR {

namespace {

const char kNotCreated[] = "CHECK_UDP_SOCKET failed because socket is not created";

}  // namespace

bool UDPSocket::create(const std::string& ip, uint16_t port) {
    return createBound(ip, port, false);
}

int UDPSocket::setBroadcast(bool enable) {
    return platform::setOption(_socket, platform::Option::BROADCAST, enable ? 1 : 0);
}

bool UDPSocket::sendto(const std::string& ip, uint16_t port, const void* data, unsigned long length,
                       unsigned int* sent) const {
    if (!checkCreated(kNotCreated)) {
        return false;
    }
    NIVUR_ASSERT(data);
    platform::SocketAddress address{};
    if (!fillAddress(ip, port, &address)) {
        logLine(LOG_ERROR, "invalid address: ip=%s, port=%d", ip.c_str(), port);
        return false;
    }
    const ptrdiff_t count = platform::sendto(_socket, data, length, address);
    const KeptError error;
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
    if (!checkCreated(kNotCreated)) {
        return false;
    }
    NIVUR_ASSERT(data);
    NIVUR_ASSERT(length > 0);
    platform::SocketAddress sender{};
    const ptrdiff_t count = platform::recvfrom(_socket, data, length, sender);
    if (count == -1) {
        logLine(LOG_ERROR, "recvfrom() failed: socket=%d, err=%d", _socket, getError());
        return false;
    }
    if (count == 0) {
        logLine(LOG_DEBUG, "socket closed gracefully: socket=%d", _socket);
        return false;
    }
    platform::AddressText text;
    ip = platform::addressText(sender, text);
    port = platform::addressPort(sender);
    length = static_cast<unsigned int>(count);
    return true;
}

}  // namespace NIVUR
