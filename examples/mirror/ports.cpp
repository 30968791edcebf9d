#include "ports.h"

#include <cstring>

namespace mirror {

namespace {

constexpr unsigned int kSocketBuffer = 4 * 1024 * 1024;
constexpr int kAttempts = 10;

}  // namespace

Ports::Ports() {
    _listener.setLogEnabled(false);
    _datagrams.setLogEnabled(false);
}

std::string Ports::open(const Address& at) {
    for (int i = 0; i < kAttempts; ++i) {
        if (tryToOpen(at)) {
            _datagrams.setBufLength(kSocketBuffer);
            return "";
        }
    }
    return "cannot listen on " + at.text() + ": " + std::strerror(NIVUR::Socket::getError());
}

/// Takes the same port for both kinds of socket; which one the system chooses may be taken for the
/// other kind.
bool Ports::tryToOpen(const Address& at) {
    _listener.close();
    _datagrams.close();
    return _listener.create(at.ip, at.port) && _datagrams.create(at.ip, _listener.port()) &&
           _listener.listen(8) && _listener.setBlocking(false) == 0 &&
           _datagrams.setBlocking(false) == 0;
}

std::unique_ptr<NIVUR::ClientSocket> Ports::accept() {
    return std::unique_ptr<NIVUR::ClientSocket>(_listener.accept());
}

}  // namespace mirror
