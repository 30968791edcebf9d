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

/// The common base of TCP and UDP sockets: it owns one descriptor that is bound to a local address.
/// Ports are in host byte order.
///
/// There are two sets of calls, which may be mixed on one socket. Those that take an address as
/// numeric IPv4 or IPv6 text report failures as false or -1, most of them with a log line;
/// getError() then returns the reason, also after the line was written. Those that take a
/// SocketAddress or return an IoResult distinguish "would block", "closed" and "failed" and write
/// no log lines; on a socket that is not created they fail with EBADF.
///
/// One thread at a time may use an object, except that several may call its const operations, and
/// one may send while one receives, while none creates, connects, closes, moves or assigns it.
class NIVUR_EXPORT Socket {
  public:
    Socket() = default;

    /// Takes ownership of a descriptor and determines its address family. A negative number makes a
    /// socket that is not created.
    explicit Socket(int socket);

    /// Duplicates the descriptor: both objects refer to the same socket, and each closes its own
    /// descriptor. If the platform has none left, the copy is not created.
    Socket(const Socket& other);

    /// Takes the descriptor and the log switch; `other` is then not created.
    Socket(Socket&& other) noexcept;

    virtual ~Socket();

    /// Makes a socket bound to a local address and port; the system chooses a port if it is 0.
    /// Returns false if the socket is already created, `ip` is no numeric address, or the platform
    /// refuses.
    virtual bool create(const std::string& ip, uint16_t port) = 0;

    /// Closes the descriptor, if there is one; create() may follow.
    virtual void close();

    /// Allows broadcasts, if this kind of socket has them. Returns 0, or -1 on failure.
    virtual int setBroadcast(bool enable);

    /// The local address; "" on failure.
    std::string address() const;

    /// The local port; 0 on failure.
    uint16_t port() const;

    /// The local address; no address on failure.
    SocketAddress localAddress() const;

    /// The address of the peer; no address, with ENOTCONN, if the socket is not connected.
    SocketAddress peerAddress() const;

    /// Waits until there is something to read or to accept, or an end of stream or error to report.
    /// Returns 0 when ready, or -1 on failure; an interrupting signal counts as a failure.
    int select() const;

    /// Like select(), for at most `timeout` milliseconds. Returns 1 when they have passed.
    int select(unsigned int timeout) const;

    /// Waits at most `timeout` milliseconds until any of the sockets is readable, and returns those
    /// that are: none after the timeout or a failure. Sockets that are not created are ignored.
    /// Several threads may wait at once. The wait fails in a process whose limit of descriptors was
    /// lowered below the number of sockets.
    /// REQUIRES: fewer than 1024 sockets, none null.
    static std::set<Socket*> waitMultipleSocket(const std::set<Socket*>& sockets,
                                                unsigned int timeout);

    /// Makes calls block (the default) or not. Returns 0, or -1 on failure.
    int setBlocking(bool blocking);

    /// Allows or forbids binding a local address that was used shortly before. Returns 0, or -1 on
    /// failure. It affects later binds only, and create() has already bound the socket: use the
    /// `reuse` parameter of create() instead.
    int setReuse(bool reuse);

    /// Asks for send and receive buffers of `length` bytes each. Returns 0, or -1 on failure; also
    /// 0, with an error line, if the socket is not created.
    int setBufLength(unsigned int length);

    /// Sets the class of service (the priority of packets). Returns 0, or -1 on failure; also 0,
    /// with an error line, if the socket is not created. It always logs `cos` as an error line.
    int setSockCOS(int cos);

    /// The size of the send buffer in bytes, as granted by the system; Linux grants twice what was
    /// asked for, up to a limit. -1 on failure.
    int sendBufferSize() const;

    /// The size of the receive buffer, like sendBufferSize().
    int receiveBufferSize() const;

    /// Marks packets with a differentiated-services code point (DSCP), 0 to 63, by which routers
    /// and wireless links choose their priority. Returns 0, or -1 on failure.
    int setTrafficClass(unsigned int codePoint);

    /// Limits the number of hops of packets, 1 to 255, except for multicast. Returns 0, or -1 on
    /// failure.
    int setHopLimit(unsigned int hops);

    /// Switches this object's log lines on (the default) or off. Copies start with logging on.
    void setLogEnabled(bool enabled) { _logEnabled = enabled; }

    /// The descriptor, which this object owns; -1 if it is not created.
    int descriptor() const { return _socket; }

    /// Asks the resolver, which may block, whether the first address of `ip` is an IPv6 address.
    /// Returns false, and leaves `isIPv6` unchanged, if there is none.
    static bool isIPv6Address(const std::string& ip, bool& isIPv6);

    /// Closes a descriptor. Returns 0, or -1 on failure.
    static int closeSocket(int socket);

    /// The platform's error number of the calling thread's last failed call. EBADF: the socket is
    /// not created. EINVAL: the text is no address. ENOTCONN, EISCONN or EEXIST: the socket is in
    /// the wrong state. 0: end of stream, or an empty datagram.
    static int getError();

  protected:
    /// Like the copy constructor, after closing this socket; the log switch does not change.
    Socket& operator=(const Socket& other);

    /// Like the move constructor, after closing this socket.
    Socket& operator=(Socket&& other) noexcept;

    /// create() for TCP and UDP sockets.
    bool createBound(const std::string& ip, uint16_t port, bool tcp);

    /// create() at an address; `reuse` allows one that was bound shortly before.
    IoResult createBound(const SocketAddress& local, bool reuse, bool tcp);

    /// Returns a new bound descriptor, or -1. Sets the family once `ip` is resolved.
    int createSocket(const std::string& ip, uint16_t port, bool tcp);

    /// Writes a platform address of this socket's family to `address`: 28 bytes for IPv6, 16 for
    /// IPv4. Returns false if `ip` is no numeric address of the family.
    bool fillAddress(const std::string& ip, uint16_t port, void* address) const;

    /// Returns true if there is a descriptor. Otherwise sets errno to EBADF and logs an error line
    /// that names the kind of socket.
    bool checkCreated(const char* kind) const;

    /// Writes one log line if this object's log lines are switched on. Keeps errno.
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
