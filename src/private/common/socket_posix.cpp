#include "private/common/socket_posix.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "socket.h"

namespace NIVUR {

void Socket::prepareSocket() {}

int Socket::closeSocket(int socket) {
    return ::close(socket);
}

int Socket::getError() {
    return errno;
}

bool Socket::isIPv6Address(const std::string& ip, bool& isIPv6) {
    const addrinfo hints{};
    addrinfo* found = nullptr;
    if (::getaddrinfo(ip.c_str(), nullptr, &hints, &found) != 0) {
        return false;
    }
    isIPv6 = found->ai_family == AF_INET6;
    ::freeaddrinfo(found);
    return true;
}

namespace platform {

namespace {

socklen_t lengthOf(const SocketAddress& address) {
    return address.any.sa_family == AF_INET6 ? sizeof(address.ipv6) : sizeof(address.ipv4);
}

// Answers as select() does, but for descriptors of any size: a dead one fails the whole wait, and
// an end or an error can be read. Neither call is restarted after a signal.
int pollReadable(pollfd* entries, size_t count, const unsigned int* timeout) {
    timespec limit{};
    if (timeout != nullptr) {
        limit.tv_sec = static_cast<time_t>(*timeout / 1000);
        limit.tv_nsec = static_cast<long>(*timeout % 1000) * 1000000;
    }
    const int result = ::ppoll(entries, count, timeout != nullptr ? &limit : nullptr, nullptr);
    for (size_t i = 0; result > 0 && i < count; ++i) {
        if ((entries[i].revents & POLLNVAL) != 0) {
            errno = EBADF;
            return -1;
        }
    }
    return result;
}

}  // namespace

bool encodeAddress(const std::string& ip, uint16_t port, bool isIPv6, void* address) {
    SocketAddress encoded{};
    encoded.any.sa_family = isIPv6 ? AF_INET6 : AF_INET;
    encoded.ipv4.sin_port = htons(port);  // at the same place in both families
    void* const bytes = isIPv6 ? static_cast<void*>(&encoded.ipv6.sin6_addr)
                               : static_cast<void*>(&encoded.ipv4.sin_addr);
    if (::inet_pton(encoded.any.sa_family, ip.c_str(), bytes) != 1) {
        return false;
    }
    std::memcpy(address, &encoded, lengthOf(encoded));
    return true;
}

const char* addressText(const SocketAddress& address, AddressText& text) {
    const bool isIPv6 = address.any.sa_family == AF_INET6;
    const void* const bytes = isIPv6 ? static_cast<const void*>(&address.ipv6.sin6_addr)
                                     : static_cast<const void*>(&address.ipv4.sin_addr);
    return ::inet_ntop(isIPv6 ? AF_INET6 : AF_INET, bytes, text, sizeof(text));
}

uint16_t addressPort(const SocketAddress& address) {
    return ntohs(address.ipv4.sin_port);
}

int open(const SocketAddress& family, bool tcp) {
    return ::socket(family.any.sa_family, (tcp ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC,
                    tcp ? IPPROTO_TCP : IPPROTO_UDP);
}

int duplicate(int socket) {
    return ::fcntl(socket, F_DUPFD_CLOEXEC, 0);
}

int bind(int socket, const SocketAddress& address) {
    return ::bind(socket, &address.any, lengthOf(address));
}

int localAddress(int socket, SocketAddress& address) {
    address = {};
    socklen_t length = sizeof(address);
    return ::getsockname(socket, &address.any, &length);
}

bool isIPv6(int socket) {
    SocketAddress address{};
    return localAddress(socket, address) == 0 && address.any.sa_family == AF_INET6;
}

int connect(int socket, const SocketAddress& address) {
    return ::connect(socket, &address.any, lengthOf(address));
}

int listen(int socket, unsigned int count) {
    return ::listen(socket, static_cast<int>(count));
}

int accept(int socket, SocketAddress& peer) {
    socklen_t length = sizeof(peer);
    return ::accept4(socket, &peer.any, &length, SOCK_CLOEXEC);
}

int shutdown(int socket) {
    return ::shutdown(socket, SHUT_RDWR);
}

ptrdiff_t send(int socket, const void* data, size_t length) {
    return ::send(socket, data, length, MSG_NOSIGNAL);
}

ptrdiff_t recv(int socket, void* data, size_t length) {
    return ::recv(socket, data, length, 0);
}

ptrdiff_t sendto(int socket, const void* data, size_t length, const SocketAddress& receiver) {
    return ::sendto(socket, data, length, 0, &receiver.any, lengthOf(receiver));
}

ptrdiff_t recvfrom(int socket, void* data, size_t length, SocketAddress& sender) {
    socklen_t senderLength = sizeof(sender);
    return ::recvfrom(socket, data, length, 0, &sender.any, &senderLength);
}

int setOption(int socket, Option option, int value) {
    return ::setsockopt(socket, SOL_SOCKET, static_cast<int>(option), &value, sizeof(value));
}

int setBlocking(int socket, bool blocking) {
    int nonBlocking = blocking ? 0 : 1;
    return ::ioctl(socket, FIONBIO, &nonBlocking);
}

int waitReadable(int socket, const unsigned int* timeout) {
    pollfd entry{socket, POLLIN, 0};
    return pollReadable(&entry, 1, timeout);
}

int ReadSet::wait(unsigned int timeout) {
    return pollReadable(_entries, _count, &timeout);
}

}  // namespace platform
}  // namespace NIVUR
