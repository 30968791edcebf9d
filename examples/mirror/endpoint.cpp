#include "endpoint.h"

#include <nivur/system_util.h>

#include <utility>

#include "texts.h"

using NIVUR::Dictionary;
using NIVUR::makeRunnable;
using NIVUR::SystemUtil;

namespace mirror {

namespace {

constexpr unsigned int kCheckMs = 1000;
constexpr unsigned int kStandstillMs = 10000;

}  // namespace

Endpoint::Endpoint(const std::string& name, std::string peerRole, NIVUR::EventCenter& events)
    : _loop("mirror-" + name),
      _events(events),
      _peerRole(std::move(peerRole)),
      _controlLoop("mirror-" + name + "-ctl") {}

void Endpoint::startLoops() {
    _loop.addTimer(makeRunnable([this] { checkProgress(); }), kCheckMs, true);
    if (!_controlLoop.start() || !_loop.start()) {
        end("cannot start a thread");
    }
}

void Endpoint::stopLoops() {
    _controlLoop.stop();  // it posts to the other one
    _loop.stop();
    _channel.reset();
}

std::string Endpoint::wait() {
    _done.wait();
    if (_channel != nullptr && !_peerHadLastWord) {
        _channel->waitForClose();
    }
    stopLoops();
    return _error;
}

void Endpoint::interrupt() {
    _loop.postItem(makeRunnable([this] { end("interrupted"); }), true, false);
}

void Endpoint::dump() {
    _loop.dumpLoopInfo();
    _controlLoop.dumpLoopInfo();
}

void Endpoint::connect(std::unique_ptr<NIVUR::ClientSocket> socket) {
    _channel = std::make_unique<ControlChannel>(std::move(socket), _controlLoop, _loop, *this);
    progress();
}

void Endpoint::end(const std::string& error) {
    if (_ended) {
        return;
    }
    _ended = true;
    _error = error;
    if (_channel != nullptr && !_peerHadLastWord && !error.empty()) {
        send(makeRefusal(error));
    }
    _done.notify();
}

void Endpoint::progress() {
    _progressMs = SystemUtil::getCPUTime();
}

void Endpoint::checkProgress() {
    if (!_ended && isConnected() && SystemUtil::getCPUTime() - _progressMs > kStandstillMs) {
        onLost("has made no progress for " + std::to_string(kStandstillMs / 1000) + " s");
    }
}

void Endpoint::onText(const Dictionary& text) {
    if (_ended) {
        return;
    }
    const std::string type = typeOf(text);
    _peerHadLastWord = type == "refuse" || type == "done";
    if (type == "refuse") {
        onLost("refused: " + printable(text.getString("reason")));
    } else if (!handle(type, text) && !_ended) {
        onLost("sent a text that does not belong here: " + printable(type));
    }
}

void Endpoint::onLost(const std::string& deed) {
    end("the " + _peerRole + " " + deed);
}

}  // namespace mirror
