#include "ports.h"

#include <cstring>

#include "limits.h"

using NIVUR::IoResult;
using NIVUR::SocketAddress;
using NIVUR::UDPSocket;

namespace mirror {

namespace {

constexpr int kAttempts = 10;
constexpr unsigned int kBacklog = 1024;

}  // namespace

Ports::Ports() {
    _listener.setLogEnabled(false);
}

std::string Ports::open(const Address& at, UDPSocket& datagrams) {
    IoResult result;
    for (int i = 0; i < kAttempts; ++i) {
        result = tryToOpen(at, datagrams);
        if (result) {
            datagrams.setBufLength(kSocketBuffer);
            return "";
        }
    }
    return "cannot listen on " + at.text() + ": " + std::strerror(result.error);
}

/// Binds both sockets to the same port. Fails if a port that the kernel chose for one is in use for
/// the other. The listener may reuse a port with connections in TIME_WAIT.
IoResult Ports::tryToOpen(const Address& at, UDPSocket& datagrams) {
    _listener.close();
    datagrams.close();
    IoResult result = _listener.create(SocketAddress(at.ip, at.port), true);
    if (result) {
        result = datagrams.create(SocketAddress(at.ip, _listener.port()));
    }
    if (result && !(_listener.listen(kBacklog) && _listener.setBlocking(false) == 0 &&
                    datagrams.setBlocking(false) == 0 && datagrams.setCoalescing(true) <= 0)) {
        return {IoResult::FAILED, 0, NIVUR::Socket::getError()};
    }
    return result;
}

}  // namespace mirror
