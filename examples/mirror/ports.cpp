#include "ports.h"

#include <cstring>

using NIVUR::IoResult;
using NIVUR::SocketAddress;
using NIVUR::UDPSocket;

namespace mirror {

namespace {

constexpr unsigned int kSocketBuffer = 4 * 1024 * 1024;
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

/// Takes the same port for both kinds of socket; which one the system chooses may be taken for the
/// other kind. A port is free for a new listener although connections of the last one linger.
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
