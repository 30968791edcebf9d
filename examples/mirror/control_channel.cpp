#include "control_channel.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <nivur/serialization.h>
#include <nivur/system_util.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>

#include "texts.h"

using NIVUR::Dictionary;
using NIVUR::makeRunnable;
using NIVUR::RunLoop;
using NIVUR::Serialization;
using NIVUR::Socket;
using NIVUR::SystemUtil;

namespace mirror {

namespace {

constexpr unsigned int kAliveMs = 1000;
constexpr unsigned int kSilenceMs = 5000;
constexpr size_t kMaxLine = 8192;
constexpr size_t kMaxUnsent = 1024UL * 1024;

/// Enables TCP keep-alive: after five idle seconds the kernel probes the peer up to five times, at
/// intervals of one second. It does not probe while sent data is unacknowledged, which
/// TCP_USER_TIMEOUT limits.
void keepWatch(int descriptor) {
    const int on = 1;
    const int seconds = 5;
    const int count = 5;
    const unsigned int unacknowledgedMs = 10'000;
    ::setsockopt(descriptor, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof(on));
    ::setsockopt(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, &seconds, sizeof(seconds));
    ::setsockopt(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, &on, sizeof(on));
    ::setsockopt(descriptor, IPPROTO_TCP, TCP_KEEPCNT, &count, sizeof(count));
    ::setsockopt(descriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, &unacknowledgedMs,
                 sizeof(unacknowledgedMs));
}

}  // namespace

ControlChannel::ControlChannel(std::unique_ptr<NIVUR::ClientSocket> socket, RunLoop& loop,
                               Handler& handler)
    : _socket(std::move(socket)), _peer(_socket->remoteAddress()), _loop(loop), _handler(&handler) {
    _socket->setLogEnabled(false);
    _socket->setBlocking(false);
    _socket->setNoDelay(true);
    _loop.addWatch(_socket->descriptor(), RunLoop::READABLE,
                   makeRunnable([this] { receive(); }, this));
    keepWatch(_socket->descriptor());
    setResting(false);
}

ControlChannel::~ControlChannel() {
    close();
}

void ControlChannel::close() {
    _loop.cancelTasksForObject(this);
    _socket->close();
}

void ControlChannel::send(const Dictionary& text) {
    if (isOpen()) {
        const bool mayBeClear = typeOf(text) == "refuse" && !isProved();
        _unsent += _keys && !mayBeClear ? seal(toLine(text)) : toLine(text);
        flush();
    }
}

/// Ignores errors: a failed connection becomes readable, and receive() then reports it.
void ControlChannel::flush() {
    unsigned int sent = 0;
    if (_socket->send(_unsent.data(), static_cast<unsigned int>(_unsent.size()), &sent)) {
        _unsent.erase(0, sent);
    }
    if (_unsent.empty()) {
        _loop.removeWatch(std::exchange(_writable, 0));
    } else if (_writable == 0) {
        _writable = _loop.addWatch(_socket->descriptor(), RunLoop::WRITABLE,
                                   makeRunnable([this] { flush(); }, this));
    }
}

void ControlChannel::setResting(bool resting) {
    _loop.stopTimer(std::exchange(_aliveTimer, 0));
    if (!resting) {
        _heardMs = SystemUtil::getCPUTime();
        _aliveTimer = _loop.addTimer(makeRunnable([this] { keepAlive(); }, this), kAliveMs, true);
    }
}

void ControlChannel::keepAlive() {
    if (SystemUtil::getCPUTime() - _heardMs > kSilenceMs) {
        fail("has been silent for " + std::to_string(kSilenceMs / 1000) + " s");
    } else if (_unsent.size() > kMaxUnsent) {
        fail("does not read what it is sent");
    } else if (isProved()) {  // other peers receive answers only
        send(makeText("alive"));
    }
}

void ControlChannel::receive() {
    char bytes[4096];
    unsigned int size = sizeof(bytes);
    if (_socket->recv(bytes, size)) {
        _heardMs = SystemUtil::getCPUTime();
        _received.append(bytes, size);
        while (takeLine()) {
        }
    } else if (size == 0 || Socket::getError() != EAGAIN) {
        close();
        _handler->onClosed();
    }
}

/// Delivers the first complete message; false if there is none, or if no more may be delivered.
bool ControlChannel::takeLine() {
    if (_failed || !isOpen()) {
        _received.clear();
        return false;
    }
    const size_t end = _received.find('\n');
    if (end == std::string::npos) {
        if (_received.size() > kMaxLine) {
            fail("sent a text that is too long");
        }
        return false;
    }
    const auto text = read(_received.substr(0, end));
    _received.erase(0, end + 1);
    if (!text) {
        fail("does not hold the same key");
    } else if (typeOf(*text).empty()) {
        fail("sent a text that cannot be understood");
    } else if (!_keys || typeOf(*text) != "alive") {
        _handler->onText(*text);
    }
    return true;
}

/// Parses a line; nullopt if it must be encrypted with the session's keys and is not.
std::optional<Dictionary> ControlChannel::read(const std::string& line) {
    if (!_keys) {
        return Serialization::deserialize(line);
    }
    if (const auto opened = open(line)) {
        ++_opened;
        return Serialization::deserialize(*opened);
    }
    const bool isClear = _opened == 0 && line.compare(0, 1, "{") == 0;
    Dictionary text = isClear ? Serialization::deserialize(line) : Dictionary();
    return typeOf(text) == "refuse" ? std::optional(std::move(text)) : std::nullopt;
}

void ControlChannel::greet() {
    _agreement.emplace();
    Dictionary text = makeText("hello");
    text.setString("public", _agreement->publicText());
    send(text);
}

bool ControlChannel::agree(const Dictionary& hello, const Key& shared, bool isSender) {
    _keys = _agreement->finish(shared, hello.getString("public"), isSender);
    _agreement.reset();
    return _keys.has_value();
}

std::string ControlChannel::seal(const std::string& line) {
    std::string sealed(line.size() + kTagSize, '\0');
    Cipher(_keys->sendTexts).seal(_sealed++, nullptr, 0, line.data(), line.size(), sealed.data());
    return toBase64(sealed) + "\n";
}

std::optional<std::string> ControlChannel::open(const std::string& line) const {
    const auto sealed = fromBase64(line);
    if (!sealed || sealed->size() < kTagSize) {
        return std::nullopt;
    }
    std::string text(sealed->size() - kTagSize, '\0');
    const bool isGenuine =
        Cipher(_keys->receiveTexts)
            .open(_opened, nullptr, 0, sealed->data(), sealed->size(), text.data());
    return isGenuine ? std::optional(text) : std::nullopt;
}

void ControlChannel::fail(const std::string& reason) {
    if (!std::exchange(_failed, true)) {
        _handler->onFault(reason);
    }
}

}  // namespace mirror
