#include "private/common/socket_posix.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/tcp.h>
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
    const int result = ::getaddrinfo(ip.c_str(), nullptr, &hints, &found);
    if (result != 0) {
        errno = result == EAI_SYSTEM ? errno : EINVAL;
        return false;
    }
    isIPv6 = found->ai_family == AF_INET6;
    ::freeaddrinfo(found);
    return true;
}

namespace platform {

namespace {

const sockaddr* platformAddress(const SocketAddress& address) {
    return static_cast<const sockaddr*>(address.data());
}

socklen_t platformSize(const SocketAddress& address) {
    return static_cast<socklen_t>(address.size());
}

/// Makes a call that takes an address. Fails with EINVAL if there is none, because the platform may
/// give an empty address a meaning of its own.
template <class Call>
auto withAddress(const SocketAddress& address, Call call) {
    if (!address.isValid()) {
        errno = EINVAL;
        return decltype(call(nullptr, 0)){-1};
    }
    return call(platformAddress(address), platformSize(address));
}

/// Makes a call that returns an address, and sets `address` to it; to no address after a failure.
template <class Call>
auto givenAddress(SocketAddress& address, Call call) {
    sockaddr_in6 given{};
    socklen_t size = sizeof(given);
    const auto result = call(reinterpret_cast<sockaddr*>(&given), &size);
    address = SocketAddress::fromPlatform(&given, result == -1 ? 0 : size);
    return result;
}

/// Returns a failure if the received datagram was longer than `room`.
IoResult uncut(size_t room, IoResult received) {
    return received.count > room ? IoResult{IoResult::FAILED, 0, EMSGSIZE} : received;
}

/// Like select(), but for descriptors of any value. A closed descriptor fails the whole wait; end
/// of stream and errors count as readable. Like select(), it fails with EINTR when a signal handler
/// has run, also one with SA_RESTART.
int pollReadable(pollfd* entries, size_t count, std::optional<unsigned int> timeout) {
    timespec limit{};
    if (timeout) {
        limit.tv_sec = static_cast<time_t>(*timeout / 1000);
        limit.tv_nsec = static_cast<long>(*timeout % 1000) * 1000000;
    }
    const int result = ::ppoll(entries, count, timeout ? &limit : nullptr, nullptr);
    for (size_t i = 0; result > 0 && i < count; ++i) {
        if ((entries[i].revents & POLLNVAL) != 0) {
            errno = EBADF;
            return -1;
        }
    }
    return result;
}

}  // namespace

SocketAddress parseAddress(const char* ip, uint16_t port, bool isIPv6) {
    sockaddr_in6 ipv6{};
    sockaddr_in ipv4{};
    ipv6.sin6_port = ipv4.sin_port = htons(port);
    ipv6.sin6_family = AF_INET6;
    ipv4.sin_family = AF_INET;
    void* const bytes =
        isIPv6 ? static_cast<void*>(&ipv6.sin6_addr) : static_cast<void*>(&ipv4.sin_addr);
    if (::inet_pton(isIPv6 ? AF_INET6 : AF_INET, ip, bytes) != 1) {
        errno = EINVAL;
        return {};
    }
    return isIPv6 ? SocketAddress::fromPlatform(&ipv6, sizeof(ipv6))
                  : SocketAddress::fromPlatform(&ipv4, sizeof(ipv4));
}

const char* addressText(const SocketAddress& address, AddressText& text) {
    const auto* const bytes = static_cast<const char*>(address.data());
    return address.isIPv6()
               ? ::inet_ntop(AF_INET6, bytes + offsetof(sockaddr_in6, sin6_addr), text,
                             sizeof(text))
               : ::inet_ntop(AF_INET, bytes + offsetof(sockaddr_in, sin_addr), text, sizeof(text));
}

int open(const SocketAddress& family, bool tcp) {
    return withAddress(family, [tcp](const sockaddr* address, socklen_t /*size*/) {
        return ::socket(address->sa_family, (tcp ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC,
                        tcp ? IPPROTO_TCP : IPPROTO_UDP);
    });
}

int duplicate(int socket) {
    return ::fcntl(socket, F_DUPFD_CLOEXEC, 0);
}

int bind(int socket, const SocketAddress& address) {
    return ::bind(socket, platformAddress(address), platformSize(address));
}

SocketAddress localAddress(int socket) {
    SocketAddress address;
    givenAddress(address, [socket](sockaddr* given, socklen_t* size) {
        return ::getsockname(socket, given, size);
    });
    return address;
}

SocketAddress peerAddress(int socket) {
    SocketAddress address;
    givenAddress(address, [socket](sockaddr* given, socklen_t* size) {
        return ::getpeername(socket, given, size);
    });
    return address;
}

bool isIPv6(int socket) {
    return localAddress(socket).isIPv6();
}

int connect(int socket, const SocketAddress& peer) {
    return withAddress(peer, [socket](const sockaddr* address, socklen_t size) {
        return ::connect(socket, address, size);
    });
}

int listen(int socket, unsigned int count) {
    return ::listen(socket, static_cast<int>(count));
}

int accept(int socket, SocketAddress& peer) {
    return givenAddress(peer, [socket](sockaddr* given, socklen_t* size) {
        return ::accept4(socket, given, size, SOCK_CLOEXEC);
    });
}

bool isIdle(int socket) {
    pollfd entry{socket, 0, 0};
    return ::poll(&entry, 1, 0) == 1 && (entry.revents & POLLHUP) != 0;
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
    return withAddress(receiver, [=](const sockaddr* address, socklen_t size) {
        return ::sendto(socket, data, length, 0, address, size);
    });
}

ptrdiff_t recvfrom(int socket, void* data, size_t length, SocketAddress& sender) {
    return givenAddress(sender, [=](sockaddr* given, socklen_t* size) {
        return ::recvfrom(socket, data, length, 0, given, size);
    });
}

IoResult receiveDatagram(int socket, void* data, size_t length, SocketAddress& sender) {
    return uncut(length, complete([&] {
                     return givenAddress(sender, [=](sockaddr* given, socklen_t* size) {
                         return ::recvfrom(socket, data, length, MSG_TRUNC, given, size);
                     });
                 }));
}

IoResult failure() {
    switch (errno) {
        case EAGAIN:
        case EINPROGRESS:
        case EALREADY:
            return {IoResult::WOULD_BLOCK};
        case EPIPE:
            return {IoResult::CLOSED};
        default:
            return {IoResult::FAILED, 0, errno};
    }
}

int setOption(int socket, Option option, int value) {
    return ::setsockopt(socket, SOL_SOCKET, static_cast<int>(option), &value, sizeof(value));
}

int getOption(int socket, Option option) {
    int value = 0;
    socklen_t size = sizeof(value);
    const int name = static_cast<int>(option);
    return ::getsockopt(socket, SOL_SOCKET, name, &value, &size) == -1 ? -1 : value;
}

int takeError(int socket) {
    int error = 0;
    socklen_t size = sizeof(error);
    return ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == -1 ? errno : error;
}

int setBlocking(int socket, bool blocking) {
    int nonBlocking = blocking ? 0 : 1;
    return ::ioctl(socket, FIONBIO, &nonBlocking);
}

int setNoDelay(int socket, bool noDelay) {
    const int value = noDelay ? 1 : 0;
    return ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &value, sizeof(value));
}

int setOption(int socket, bool isIPv6, FamilyOption option, unsigned int number) {
    if (number > 255 || (number == 0 && option == FamilyOption::HOPS)) {
        errno = EINVAL;
        return -1;
    }
    const int value = static_cast<int>(number);
    // In the order of FamilyOption: the names for IPv4 and IPv6.
    static constexpr int kNames[][2] = {{IP_TOS, IPV6_TCLASS},
                                        {IP_TTL, IPV6_UNICAST_HOPS},
                                        {IP_MULTICAST_TTL, IPV6_MULTICAST_HOPS}};
    const int(&names)[2] = kNames[static_cast<int>(option)];
    // Set both: an IPv6 socket uses the IPv4 options for IPv4-mapped addresses.
    const int ipv4 = ::setsockopt(socket, IPPROTO_IP, names[0], &value, sizeof(value));
    return isIPv6 ? ::setsockopt(socket, IPPROTO_IPV6, names[1], &value, sizeof(value)) : ipv4;
}

int setMembership(int socket, const SocketAddress& group, unsigned int interfaceIndex,
                  bool member) {
    const auto* const bytes = static_cast<const char*>(group.data());
    if (group.isIPv6()) {
        ipv6_mreq request{};
        // The field is an int on Android.
        request.ipv6mr_interface = static_cast<decltype(request.ipv6mr_interface)>(
            interfaceIndex != 0 ? interfaceIndex : group.scopeId());
        std::memcpy(&request.ipv6mr_multiaddr, bytes + offsetof(sockaddr_in6, sin6_addr),
                    sizeof(request.ipv6mr_multiaddr));
        return ::setsockopt(socket, IPPROTO_IPV6, member ? IPV6_JOIN_GROUP : IPV6_LEAVE_GROUP,
                            &request, sizeof(request));
    }
    ip_mreqn request{{}, {}, static_cast<int>(interfaceIndex)};
    std::memcpy(&request.imr_multiaddr, bytes + offsetof(sockaddr_in, sin_addr),
                sizeof(request.imr_multiaddr));
    return ::setsockopt(socket, IPPROTO_IP, member ? IP_ADD_MEMBERSHIP : IP_DROP_MEMBERSHIP,
                        &request, sizeof(request));
}

int waitReadable(int socket, std::optional<unsigned int> timeout) {
    pollfd entry{socket, POLLIN, 0};
    return pollReadable(&entry, 1, timeout);
}

int ReadSet::wait(unsigned int timeout) {
    return pollReadable(_entries, _count, timeout);
}

}  // namespace platform
}  // namespace NIVUR
