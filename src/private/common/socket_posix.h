#ifndef NIVUR_PRIVATE_COMMON_SOCKET_POSIX_H
#define NIVUR_PRIVATE_COMMON_SOCKET_POSIX_H

#include <netinet/in.h>
#include <poll.h>
#include <sys/select.h>  // FD_SETSIZE, the number of sockets that is too many for one wait

#include <cstddef>
#include <cstdint>
#include <string>

/// The socket calls, as the socket classes need them. Results are the platform's unless said
/// otherwise: -1 is a failure whose reason is in errno. Every descriptor made is close-on-exec.
namespace NIVUR::platform {

/// A socket address of either family; the largest member is the first, which `{}` makes zero.
union SocketAddress {
    sockaddr_in6 ipv6;
    sockaddr_in ipv4;
    sockaddr any;
};

/// Room for the text of any address.
using AddressText = char[256];

/// Writes the address of numeric text, 28 bytes for IPv6 and 16 for IPv4; false for other text.
bool encodeAddress(const std::string& ip, uint16_t port, bool isIPv6, void* address);

/// The text of an address, in `text`.
const char* addressText(const SocketAddress& address, AddressText& text);
uint16_t addressPort(const SocketAddress& address);

int open(const SocketAddress& family, bool tcp);
int duplicate(int socket);
int bind(int socket, const SocketAddress& address);
int localAddress(int socket, SocketAddress& address);
bool isIPv6(int socket);

int connect(int socket, const SocketAddress& address);
int listen(int socket, unsigned int count);
int accept(int socket, SocketAddress& peer);
int shutdown(int socket);

/// Never raises SIGPIPE.
ptrdiff_t send(int socket, const void* data, size_t length);
ptrdiff_t recv(int socket, void* data, size_t length);
ptrdiff_t sendto(int socket, const void* data, size_t length, const SocketAddress& receiver);
ptrdiff_t recvfrom(int socket, void* data, size_t length, SocketAddress& sender);

enum class Option : int {
    REUSE = SO_REUSEADDR,
    BROADCAST = SO_BROADCAST,
    SEND_BUFFER = SO_SNDBUF,
    RECEIVE_BUFFER = SO_RCVBUF,
    PRIORITY = SO_PRIORITY
};
int setOption(int socket, Option option, int value);
int setBlocking(int socket, bool blocking);

/// Waits until the socket is readable or `timeout` milliseconds, if given, have passed: 1 or 0.
int waitReadable(int socket, const unsigned int* timeout);

/// Sockets to be waited for together.
class ReadSet {
  public:
    /// REQUIRES: fewer than FD_SETSIZE sockets were added.
    void add(int socket) { _entries[_count++] = {socket, POLLIN, 0}; }

    /// Waits until any is readable or `timeout` milliseconds have passed: their number or 0.
    int wait(unsigned int timeout);

    /// Whether the wait found the socket that was added as number `index`, from 0, readable.
    bool isReadable(size_t index) const { return _entries[index].revents != 0; }

  private:
    size_t _count = 0;
    pollfd _entries[FD_SETSIZE];
};

}  // namespace NIVUR::platform

#endif
