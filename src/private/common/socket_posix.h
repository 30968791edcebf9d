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

/// The socket calls, as the socket classes need them. Results are the platform's unless said
/// otherwise: -1 is a failure whose reason is in errno. Every descriptor made is close-on-exec.
/// A call with no address fails with EINVAL.
namespace NIVUR::platform {

/// Room for the text of any address.
using AddressText = char[256];

/// The address of numeric text of that family, without a scope; none, and EINVAL, for other text.
SocketAddress parseAddress(const char* ip, uint16_t port, bool isIPv6);

/// The text of an address without its scope, in `text`.
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

/// Whether a TCP socket is neither connected nor on the way to it.
bool isIdle(int socket);

/// Never raises SIGPIPE.
ptrdiff_t send(int socket, const void* data, size_t length);
ptrdiff_t recv(int socket, void* data, size_t length);
ptrdiff_t sendto(int socket, const void* data, size_t length, const SocketAddress& receiver);
ptrdiff_t recvfrom(int socket, void* data, size_t length, SocketAddress& sender);

/// The result of the call that has just set errno.
IoResult failure();

/// Makes a call until no signal interrupts it, and says what came of it.
template <class Call>
IoResult complete(Call call) {
    ptrdiff_t count = -1;
    do {
        count = call();
    } while (count == -1 && errno == EINTR);
    return count == -1 ? failure() : IoResult{IoResult::DONE, static_cast<size_t>(count)};
}

/// Receives one datagram whole, or fails with EMSGSIZE.
IoResult receiveDatagram(int socket, void* data, size_t length, SocketAddress& sender);

/// UDPSocket's operations of these names.
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
int takeError(int socket);                 ///< the error number that was pending, or 0
int setBlocking(int socket, bool blocking);
int setNoDelay(int socket, bool noDelay);

/// Options that IPv4 and IPv6 have under different names.
enum class FamilyOption { TRAFFIC_CLASS, HOPS, MULTICAST_HOPS };
int setOption(int socket, bool isIPv6, FamilyOption option, unsigned int number);
int setMembership(int socket, const SocketAddress& group, unsigned int interfaceIndex, bool member);

/// Waits until the socket is readable or `timeout` milliseconds, if given, have passed: 1 or 0.
int waitReadable(int socket, std::optional<unsigned int> timeout);

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
