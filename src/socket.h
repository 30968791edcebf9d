#ifndef NIVUR_SOCKET_H
#define NIVUR_SOCKET_H

#include <cstdarg>
#include <cstdint>
#include <set>
#include <string>

#include "export.h"
#include "log.h"

namespace NIVUR {

/// What TCP and UDP sockets have in common: one descriptor, owned, bound to a local address.
/// Addresses are numeric IPv4 or IPv6 text, ports are in host order. Failures come back as results,
/// most with a log line; getError() then tells the platform's reason, also after the line was
/// written. One thread at a time may use an object, but several may read, or one send and one
/// receive, while none creates, connects, closes or assigns it.
class NIVUR_EXPORT Socket {
  public:
    Socket() = default;

    /// Takes over a descriptor, or -1 for none, and its address family.
    explicit Socket(int socket);

    /// Duplicates the descriptor: both objects are ends of the same socket and each closes its own.
    /// The copy is not created when the platform has no descriptor left.
    Socket(const Socket& other);

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

    /// Waits until there is something to read, to accept, or an end or error to fetch: 0 when so,
    /// -1 on failure, which an interrupting signal is too.
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

    /// Whether calls wait for their result, as they do at first: 0, or -1 on failure.
    int setBlocking(bool blocking);

    /// Whether the local address may be bound again at once after use: 0, or -1 on failure. It
    /// takes effect on a later bind of the descriptor, and so never on the one by create().
    int setReuse(bool reuse);

    /// Asks for send and receive buffers of `length` bytes each: 0, or -1 on failure. Also 0, with
    /// an error line, when not created.
    int setBufLength(unsigned int length);

    /// Sets the class of service (the packets' priority): 0, or -1 on failure. Also 0, with an
    /// error line, when not created. It logs its value as an error line whether it succeeds or not.
    int setSockCOS(int cos);

    /// Switches this object's log lines, which are on at first. Copies start with theirs on.
    void setLogEnabled(bool enabled) { _logEnabled = enabled; }

    /// The descriptor, which stays owned by this object, or -1.
    int descriptor() const { return _socket; }

    /// Asks the resolver, which may block, whether the first address of `ip` is an IPv6 one; false,
    /// and nothing written, when it knows none.
    static bool isIPv6Address(const std::string& ip, bool& isIPv6);

    /// Closes a descriptor: 0, or -1 on failure.
    static int closeSocket(int socket);

    /// The platform's error number of the calling thread's last failure.
    static int getError();

  protected:
    /// As the copy constructor, after closing what this object had; its log switch stays.
    Socket& operator=(const Socket& other);

    /// create() for either kind of socket.
    bool createBound(const std::string& ip, uint16_t port, bool tcp);

    /// A new bound descriptor, or -1. Sets the family once `ip` is resolved.
    int createSocket(const std::string& ip, uint16_t port, bool tcp);

    /// Writes a platform address of this socket's family, 28 bytes for IPv6 and 16 for IPv4; false
    /// when `ip` is no numeric address of that family.
    bool fillAddress(const std::string& ip, uint16_t port, void* address) const;

    /// True when there is a descriptor; otherwise `line`, which takes no arguments, is logged as an
    /// error.
    bool checkCreated(const char* line, ...) const __attribute__((format(printf, 2, 3)));

    /// Writes one log line if this object's are on. The platform's error number outlives it.
    void logLine(LogLevel level, const char* fmt, ...) const __attribute__((format(printf, 3, 4)));

    int _socket = -1;         ///< the owned descriptor, or -1 when not created
    bool _logEnabled = true;  ///< whether this object writes log lines
    bool _isIPv6 = false;     ///< the descriptor's address family

  private:
    void prepareSocket();
    int wait(const unsigned int* timeout) const;
    void vlogLine(LogLevel level, const char* fmt, va_list args) const
        __attribute__((format(printf, 3, 0)));
};

}  // namespace NIVUR

#endif
