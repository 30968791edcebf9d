#include "control_channel.h"

#include <nivur/serialization.h>
#include <nivur/system_util.h>

#include <utility>

#include "texts.h"

using NIVUR::AutoLock;
using NIVUR::Dictionary;
using NIVUR::makeRunnable;
using NIVUR::RunLoop;
using NIVUR::Serialization;
using NIVUR::SystemUtil;

namespace mirror {

namespace {

constexpr unsigned int kPollMs = 5;
constexpr unsigned int kAliveMs = 1000;
constexpr unsigned int kSilenceMs = 5000;
constexpr unsigned int kCloseMs = 500;
constexpr size_t kMaxLine = 8192;
constexpr size_t kMaxUnsent = 1024UL * 1024;
constexpr int kMaxUndelivered = 1000;

}  // namespace

ControlChannel::ControlChannel(std::unique_ptr<NIVUR::ClientSocket> socket, RunLoop& loop,
                               RunLoop& owner, Handler& handler)
    : _socket(std::move(socket)),
      _loop(loop),
      _owner(owner),
      _handler(handler),
      _heardMs(SystemUtil::getCPUTime()) {
    _socket->setLogEnabled(false);
    _socket->setBlocking(false);
    // A timer of no time runs in every pass of the loop.
    _loop.addTimer(makeRunnable([this] { poll(); }, this), 0, true);
    _loop.addTimer(makeRunnable([this] { keepAlive(); }, this), kAliveMs, true);
}

ControlChannel::~ControlChannel() {
    _loop.cancelTasksForObject(this);
    _owner.cancelTasksForObject(this);
}

void ControlChannel::send(const Dictionary& text) {
    const std::string line = toLine(text);
    AutoLock lock(_mutex);
    _unsent += line;
    flush();
}

void ControlChannel::flush() {
    unsigned int sent = 0;
    if (!_unsent.empty() &&
        _socket->send(_unsent.data(), static_cast<unsigned int>(_unsent.size()), &sent)) {
        _unsent.erase(0, sent);
    }
}

void ControlChannel::waitForClose() {
    _closed.wait(kCloseMs);
}

void ControlChannel::poll() {
    if (_lost) {
        SystemUtil::sleep(kPollMs);
        return;
    }
    size_t unsent = 0;
    {
        AutoLock lock(_mutex);
        flush();
        unsent = _unsent.size();
    }
    if (unsent > kMaxUnsent) {
        lose("does not read what it is sent");
    } else if (_undelivered >= kMaxUndelivered) {
        SystemUtil::sleep(kPollMs);
    } else if (_socket->select(kPollMs) == 0 && !receive()) {
        lose("closed the connection");
    }
}

void ControlChannel::keepAlive() {
    if (!_lost && SystemUtil::getCPUTime() - _heardMs > kSilenceMs) {
        lose("has been silent for " + std::to_string(kSilenceMs / 1000) + " s");
    }
    send(makeText("alive"));
}

/// Reads what is there; false when the connection has ended.
bool ControlChannel::receive() {
    char bytes[4096];
    unsigned int size = sizeof(bytes);
    if (!_socket->recv(bytes, size)) {
        return false;
    }
    _heardMs = SystemUtil::getCPUTime();
    _received.append(bytes, size);
    while (!_lost && takeLine()) {
    }
    if (_received.size() > kMaxLine) {
        lose("sent a text that is too long");
    }
    return true;
}

/// Delivers the first text that is complete; false when there is none.
bool ControlChannel::takeLine() {
    const size_t end = _received.find('\n');
    if (end == std::string::npos) {
        return false;
    }
    const Dictionary text = Serialization::deserialize(_received.substr(0, end));
    _received.erase(0, end + 1);
    if (typeOf(text).empty()) {
        lose("sent a text that cannot be understood");
    } else if (typeOf(text) != "alive") {
        tellOwner([this, text] { _handler.onText(text); });
    }
    return true;
}

void ControlChannel::lose(const std::string& deed) {
    if (!_lost) {
        _lost = true;
        _closed.notify();
        tellOwner([this, deed] { _handler.onLost(deed); });
    }
}

template <class Callable>
void ControlChannel::tellOwner(Callable callable) {
    ++_undelivered;
    const auto task = [this, callable] {
        --_undelivered;  // first, since the handler may end the channel
        callable();
    };
    _owner.postItem(makeRunnable(task, this), false, false);
}

}  // namespace mirror
