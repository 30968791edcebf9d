#include "endpoint.h"

#include <nivur/system_util.h>
#include <unistd.h>

#include <utility>

#include "texts.h"

using NIVUR::Dictionary;
using NIVUR::makeRunnable;
using NIVUR::SystemUtil;

namespace mirror {

namespace {

constexpr unsigned int kCheckMs = 1000;
constexpr unsigned int kStandstillMs = 10000;
constexpr unsigned int kCloseMs = 500;

}  // namespace

Endpoint::Endpoint(const std::string& name, std::string peerRole, const Key& key,
                   NIVUR::EventCenter& events)
    : _loop("mirror-" + name), _events(events), _peerRole(std::move(peerRole)), _key(key) {}

bool Endpoint::startLoop(bool isUrgent) {
    const bool mayHurry = isUrgent && ::geteuid() == 0;
    const bool started = _loop.start(mayHurry ? NIVUR::Thread::THREAD_PRIORITY_HIGH
                                              : NIVUR::Thread::THREAD_PRIORITY_NORMAL);
    if (!started) {
        end("cannot start a thread");
    }
    return started;
}

void Endpoint::stopLoop() {
    _loop.stop();
}

std::string Endpoint::wait() {
    _done.wait();
    return _error;
}

void Endpoint::interrupt() {
    _loop.postItem(makeRunnable([this] { end("interrupted"); }), true, false);
}

void Endpoint::dump() {
    _loop.dumpLoopInfo();
}

void Endpoint::connect(std::unique_ptr<NIVUR::ClientSocket> socket) {
    _channel = std::make_unique<ControlChannel>(std::move(socket), _loop, *this);
    _progressTimer = addTimer(kCheckMs, true, [this] { checkProgress(); });
    progress();
}

void Endpoint::sayHello() {
    _agreement = std::make_unique<KeyAgreement>();
    Dictionary text = makeText("hello");
    text.setString("public", _agreement->publicText());
    send(text);
}

std::optional<SessionKeys> Endpoint::secure(const Dictionary& text, bool isSender) {
    const auto keys = _agreement->finish(_key, text.getString("public"), isSender);
    if (keys) {
        _channel->protect(*keys);
    }
    return keys;
}

void Endpoint::disconnect() {
    expectNoProgress();
    _channel->close();
}

void Endpoint::send(const Dictionary& text) {
    if (!hasEnded()) {
        _channel->send(text);
    }
}

void Endpoint::end(const std::string& error) {
    if (hasEnded()) {
        return;
    }
    if (!error.empty() && isConnected() && !_peerHadLastWord) {
        send(makeRefusal(error));
    }
    _ended = true;
    _error = error;
    onEnd();
    _loop.cancelTasksForObject(this);
    if (isConnected() && !_peerHadLastWord) {
        addTimer(kCloseMs, false, [this] { leave(); });
    } else {
        leave();
    }
}

/// Closes the connection and lets wait() return.
void Endpoint::leave() {
    if (_channel != nullptr) {
        _channel->close();
    }
    _done.notify();
}

void Endpoint::progress() {
    _progressMs = SystemUtil::getCPUTime();
}

void Endpoint::expectNoProgress() {
    _loop.stopTimer(std::exchange(_progressTimer, 0));
}

void Endpoint::setResting(bool resting) {
    if (isConnected()) {
        _channel->setResting(resting);
        _loop.stopTimer(std::exchange(_progressTimer, 0));
        _progressTimer = resting ? 0 : addTimer(kCheckMs, true, [this] { checkProgress(); });
        progress();
    }
}

bool Endpoint::standsStill(unsigned int ms) const {
    return SystemUtil::getCPUTime() - _progressMs > ms;
}

void Endpoint::checkProgress() {
    if (standsStill(kStandstillMs)) {
        onLost("has made no progress for " + std::to_string(kStandstillMs / 1000) + " s");
    }
}

void Endpoint::onText(const Dictionary& text) {
    if (hasEnded()) {
        return;
    }
    const std::string type = typeOf(text);
    _peerHadLastWord = type == "refuse" || type == "done";
    if (type == "refuse") {
        onLost("refused: " + printable(text.getString("reason")));
    } else if (!handle(type, text) && !hasEnded()) {
        onLost("sent a text that does not belong here: " + printable(type));
    }
}

void Endpoint::onFault(const std::string& reason) {
    if (!hasEnded()) {
        onLost(reason);
    }
}

void Endpoint::onClosed() {
    if (hasEnded()) {
        leave();
    } else {
        onLost("closed the connection");
    }
}

void Endpoint::onLost(const std::string& reason) {
    end("the " + _peerRole + " " + reason);
}

}  // namespace mirror
