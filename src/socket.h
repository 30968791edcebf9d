#ifndef NIVUR_SOCKET_H
#define NIVUR_SOCKET_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "export.h"
#include "io_result.h"
#include "log.h"
#include "socket_address.h"

namespace NIVUR {

/// What TCP and UDP sockets have in common: one descriptor, owned, bound to a local address. Ports
/// are in host order.
///
/// There are two sets of calls. Those that take an address as numeric IPv4 or IPv6 text report
/// failures as false or -1, most with a log line; getError() then tells the reason, also after the
/// line was written. Those that take a SocketAddress or give an IoResult tell "would block",
/// "closed" and "failed" apart and write no log lines; on a socket that is not created they fail
/// with EBADF. Both may be used on the same socket.
///
/// One thread at a time may use an object, but several may read, or one send and one receive,
/// while none creates, connects, closes, moves or assigns it.
class NIVUR_EXPORT Socket {
  public:
    Socket() = default;

    /// Takes over a descriptor, or -1 for none, and its address family.
    explicit Socket(int socket);

    /// Duplicates the descriptor: both objects are ends of the same socket and each closes its own.
    /// The copy is not created when the platform has no descriptor left.
    Socket(const Socket& other);

    /// Takes over the other's descriptor and its log switch; the other is then not created.
    Socket(Socket&& other) noexcept;

    virtual ~Socket();

    /// Makes a socket bound to a local address and port; port 0 lets the system choose one. False
    /// when it exists already, the text is no numeric address, or the platform refuses.
    virtual bool create(const std::string& ip, uint16_t port) = 0;

    /// Closes the descriptor, if there is one; create() may follow.
    virtual void close();

    /// Allows broadcasts where the kind of socket has them: 0 on success, otherwise -1.
    virtual int setBroadcast(bool enable);

    /// The local address; "" on failure.
    std::string address() const;

    /// The local port; 0 on failure.
    uint16_t port() const;

    /// The local address; no address on failure.
    SocketAddress localAddress() const;

    /// The address that the socket is connected to; no address, and ENOTCONN, when it is not.
    SocketAddress peerAddress() const;

    /// Waits until there is something to read or to accept, or an end of stream or error to report.
    /// Returns 0 when ready, -1 on failure, which an interrupting signal is too.
    int select() const;

    /// As select(), for up to `timeout` milliseconds; 1 when they have passed.
    int select(unsigned int timeout) const;

    /// Waits up to `timeout` milliseconds for any of the sockets to become readable and returns
    /// those that are: none after the time limit or a failure. A socket that is not created never
    /// is. Several threads may wait at once. A process whose descriptor limit was lowered below the
    /// number of sockets gets none.
    /// REQUIRES: fewer than 1024 sockets, none null.
    static std::set<Socket*> waitMultipleSocket(const std::set<Socket*>& sockets,
                                                unsigned int timeout);

    /// Makes calls block (the default) or not. Returns 0, or -1 on failure.
    int setBlocking(bool blocking);

    /// Allows the local address to be bound again at once after use, or not. Returns 0, or -1 on
    /// failure. It takes effect on a later bind of the descriptor, and so never on the one by
    /// create(): ask for it there.
    int setReuse(bool reuse);

    /// Asks for send and receive buffers of `length` bytes each: 0, or -1 on failure. Also 0, with
    /// an error line, when not created.
    int setBufLength(unsigned int length);

    /// Sets the class of service (the packets' priority): 0, or -1 on failure. Also 0, with an
    /// error line, when not created. It logs its value as an error line whether it succeeds or not.
    int setSockCOS(int cos);

    /// The size of the send buffer in bytes as the system granted it, which on Linux is twice what
    /// was asked for, up to a limit; -1 on failure.
    int sendBufferSize() const;

    /// The size of the receive buffer, as for sendBufferSize().
    int receiveBufferSize() const;

    /// Marks what is sent with a differentiated-services code point (DSCP), 0 to 63, by which
    /// routers and wireless links choose its priority. Returns 0, or -1 on failure.
    int setTrafficClass(unsigned int codePoint);

    /// Limits how many routers pass on what is sent, 1 to 255, but for multicast. Returns 0, or -1
    /// on failure.
    int setHopLimit(unsigned int hops);

    /// Switches this object's log lines, which are initially on. Copies start with logging on.
    void setLogEnabled(bool enabled) { _logEnabled = enabled; }

    /// The descriptor, which stays owned by this object, or -1.
    int descriptor() const { return _socket; }

    /// Asks the resolver, which may block, whether the first address of `ip` is an IPv6 one; false,
    /// and nothing written, when it knows none.
    static bool isIPv6Address(const std::string& ip, bool& isIPv6);

    /// Closes a descriptor: 0, or -1 on failure.
    static int closeSocket(int socket);

    /// The platform's error number of the calling thread's last failed call: EBADF when the socket
    /// was not created, EINVAL for text that is no address, ENOTCONN, EISCONN or EEXIST for a
    /// socket in the wrong state, and 0 for an end of stream or an empty datagram.
    static int getError();

  protected:
    /// As the copy constructor, after closing what this object had; its log switch stays.
    Socket& operator=(const Socket& other);

    /// As the move constructor, after closing what this object had.
    Socket& operator=(Socket&& other) noexcept;

    /// create() for either kind of socket.
    bool createBound(const std::string& ip, uint16_t port, bool tcp);

    /// The same at an address, which may be one that was bound before.
    IoResult createBound(const SocketAddress& local, bool reuse, bool tcp);

    /// A new bound descriptor, or -1. Sets the family once `ip` is resolved.
    int createSocket(const std::string& ip, uint16_t port, bool tcp);

    /// Writes a platform address of this socket's family, 28 bytes for IPv6 and 16 for IPv4; false
    /// when `ip` is no numeric address of that family.
    bool fillAddress(const std::string& ip, uint16_t port, void* address) const;

    /// Returns true if there is a descriptor. Otherwise sets errno to EBADF and logs an error line
    /// that names the kind of socket.
    bool checkCreated(const char* kind) const;

    /// Writes one log line if this object's are on. The platform's error number outlives it.
    void logLine(LogLevel level, const char* fmt, ...) const __attribute__((format(printf, 3, 4)));

    int _socket = -1;         ///< the owned descriptor, or -1 when not created
    bool _logEnabled = true;  ///< whether this object writes log lines
    bool _isIPv6 = false;     ///< the descriptor's address family

  private:
    void prepareSocket();
    int wait(std::optional<unsigned int> timeout) const;
};

}  // namespace NIVUR

#endif
