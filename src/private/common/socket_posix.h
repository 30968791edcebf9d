#ifndef NIVUR_PRIVATE_COMMON_SOCKET_POSIX_H
#define NIVUR_PRIVATE_COMMON_SOCKET_POSIX_H

#include <netinet/in.h>
#include <poll.h>
#include <sys/select.h>  // FD_SETSIZE, the number of sockets that is too many for one wait

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "io_result.h"
#include "socket_address.h"

/// The system calls of the socket classes. Results are the platform's unless stated otherwise: -1
/// is a failure whose reason is in errno. A call that is interrupted by a signal fails with EINTR
/// and is not repeated; complete() repeats it. New descriptors are close-on-exec. A call with no
/// address fails with EINVAL.
namespace NIVUR::platform {

/// A buffer for the text of any address.
using AddressText = char[256];

/// Makes an address from numeric text of that family, without a scope. Other text makes no address,
/// and EINVAL.
SocketAddress parseAddress(const char* ip, uint16_t port, bool isIPv6);

/// Writes an address without its scope to `text`, and returns it.
const char* addressText(const SocketAddress& address, AddressText& text);

int open(const SocketAddress& family, bool tcp);
int duplicate(int socket);
int bind(int socket, const SocketAddress& address);
SocketAddress localAddress(int socket);
SocketAddress peerAddress(int socket);
bool isIPv6(int socket);

int connect(int socket, const SocketAddress& address);
int listen(int socket, unsigned int count);
int accept(int socket, SocketAddress& peer);
int shutdown(int socket);

/// Returns true if a TCP socket is neither connected nor connecting.
bool isIdle(int socket);

/// Does not raise SIGPIPE.
ptrdiff_t send(int socket, const void* data, size_t length);
ptrdiff_t recv(int socket, void* data, size_t length);
ptrdiff_t sendto(int socket, const void* data, size_t length, const SocketAddress& receiver);
ptrdiff_t recvfrom(int socket, void* data, size_t length, SocketAddress& sender);

/// Converts errno to a result.
IoResult failure();

/// Repeats a call as long as signals interrupt it, and converts its result.
template <class Call>
IoResult complete(Call call) {
    ptrdiff_t count = -1;
    do {
        count = call();
    } while (count == -1 && errno == EINTR);
    return count == -1 ? failure() : IoResult{IoResult::DONE, static_cast<size_t>(count)};
}

/// Receives one datagram; fails with EMSGSIZE if it does not fit.
IoResult receiveDatagram(int socket, void* data, size_t length, SocketAddress& sender);

/// See the operations of UDPSocket.
IoResult sendDatagrams(int socket, const SocketAddress& receiver, const void* data, size_t length,
                       size_t datagram);
IoResult receiveDatagrams(int socket, SocketAddress& sender, void* data, size_t length,
                          size_t& datagram);
int setCoalescing(int socket, bool coalescing);

enum class Option : int {
    REUSE = SO_REUSEADDR,
    BROADCAST = SO_BROADCAST,
    SEND_BUFFER = SO_SNDBUF,
    RECEIVE_BUFFER = SO_RCVBUF,
    PRIORITY = SO_PRIORITY
};
int setOption(int socket, Option option, int value);
int getOption(int socket, Option option);  ///< the value, or -1
int takeError(int socket);  ///< clears the pending error and returns its number, or 0
int setBlocking(int socket, bool blocking);
int setNoDelay(int socket, bool noDelay);

/// Options that IPv4 and IPv6 have under different names.
enum class FamilyOption { TRAFFIC_CLASS, HOPS, MULTICAST_HOPS };
int setOption(int socket, bool isIPv6, FamilyOption option, unsigned int number);
int setMembership(int socket, const SocketAddress& group, unsigned int interfaceIndex, bool member);

/// Waits until the socket is readable or `timeout` milliseconds have passed. Returns 1 or 0.
int waitReadable(int socket, std::optional<unsigned int> timeout);

/// A set of sockets to wait for.
class ReadSet {
  public:
    /// REQUIRES: fewer than FD_SETSIZE sockets were added.
    void add(int socket) { _entries[_count++] = {socket, POLLIN, 0}; }

    /// Waits until any socket is readable or `timeout` milliseconds have passed. Returns the number
    /// of readable ones, or 0.
    int wait(unsigned int timeout);

    /// Returns whether the wait found socket number `index` readable, in the order of adding from
    /// 0.
    bool isReadable(size_t index) const { return _entries[index].revents != 0; }

  private:
    size_t _count = 0;
    pollfd _entries[FD_SETSIZE];
};

}  // namespace NIVUR::platform

#endif
