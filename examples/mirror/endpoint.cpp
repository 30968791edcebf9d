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

Endpoint::Endpoint(const std::string& name, std::string peerRole, NIVUR::EventCenter& events)
    : _loop("mirror-" + name), _events(events), _peerRole(std::move(peerRole)) {}

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

void Endpoint::connect(std::unique_ptr<ControlChannel> channel) {
    _channel = std::move(channel);
    _channel->setHandler(*this);
    _progressTimer = addTimer(kCheckMs, true, [this] { checkProgress(); });
    progress();
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

/// Closes the connection and ends wait().
void Endpoint::leave() {
    if (_channel != nullptr) {
        _channel->close();
    }
    _done.notify();
}

void Endpoint::progress() {
    _progressMs = SystemUtil::getCPUTime();
}

void Endpoint::setResting(bool resting) {
    if (isConnected()) {
        _channel->setResting(resting);
        _loop.stopTimer(std::exchange(_progressTimer, 0));
        _progressTimer = resting ? 0 : addTimer(kCheckMs, true, [this] { checkProgress(); });
        progress();
    }
}

void Endpoint::checkProgress() {
    if (SystemUtil::getCPUTime() - _progressMs > kStandstillMs) {
        onLost("has made no progress for " + std::to_string(kStandstillMs / 1000) + " s");
    }
}

void Endpoint::onText(const Dictionary& text) {
    if (hasEnded()) {
        return;
    }
    const std::string type = typeOf(text);
    if (type == "refuse") {
        skipFarewell();
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
