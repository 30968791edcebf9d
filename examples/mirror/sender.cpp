#include "sender.h"

#include <nivur/system_util.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "file_source.h"
#include "limits.h"
#include "live_source.h"
#include "progress.h"
#include "texts.h"

using NIVUR::Dictionary;
using NIVUR::IoResult;
using NIVUR::RunLoop;
using NIVUR::Socket;

namespace mirror {

namespace {

constexpr unsigned int kConnectMs = 5000;

}  // namespace

Sender::Sender(const Options& options, NIVUR::EventCenter& events)
    : Endpoint("send", "receiver", events),
      _isLive(options.isLive),
      _path(_loop, 0, [this] { _transmitter->pump(); }),
      _key(options.key),
      _statistics(options.stats) {
    if (_isLive) {
        _source = std::make_unique<LiveSource>(options.latencyUs, _loop, _path, *this);
    } else {
        _source = std::make_unique<FileSource>(options.source, _path, *this);
    }
}

void Sender::start(const Address& to) {
    _to = to;
    _receiver = NIVUR::SocketAddress(to.ip, to.port);
    const std::string error = _source->open();
    if (!error.empty()) {
        end(error);
        return;
    }
    if (startLoop(_isLive)) {
        post([this] { createSockets(); });
    }
}

void Sender::createSockets() {
    const NIVUR::SocketAddress local(_to.anyLocal(), 0);
    _connecting = std::make_unique<NIVUR::ClientSocket>();
    _connecting->setLogEnabled(false);
    if (_connecting->create(local) && _connecting->setBlocking(false) == 0 &&
        _path.socket().create(local) && _path.socket().setBlocking(false) == 0) {
        _path.socket().setBufLength(kSocketBuffer);
        startConnection();
    } else {
        failToConnect(Socket::getError());
    }
}

void Sender::startConnection() {
    const IoResult result = _connecting->connect(_receiver);
    if (result.status != IoResult::WOULD_BLOCK) {
        return finishConnection(result);
    }
    _connectTimer = addTimer(kConnectMs, false, [this] { failToConnect(ETIMEDOUT); });
    _connectWatch = watch(*_connecting, RunLoop::WRITABLE,
                          [this] { finishConnection(_connecting->finishConnect()); });
    if (_connectWatch == 0) {
        failToConnect(EMFILE);  // the loop has no descriptors to watch with
    }
}

void Sender::finishConnection(const IoResult& result) {
    if (result.status == IoResult::WOULD_BLOCK) {
        return;
    }
    _loop.removeWatch(_connectWatch);
    _loop.stopTimer(_connectTimer);
    if (result) {
        connect(std::make_unique<ControlChannel>(std::move(_connecting), _loop, *this));
        channel().greet();
    } else {
        failToConnect(result.error);
    }
}

void Sender::failToConnect(int reason) {
    end("cannot connect to " + _to.text() + ": " + std::strerror(reason));
}

bool Sender::handle(const std::string& type, const Dictionary& text) {
    if (!channel().keys()) {
        return type == "hello" && onHello(text);
    }
    if (_window == 0) {
        return type == "accept" && onAccept(text);
    }
    return type == "done" && onDone(text);
}

bool Sender::onHello(const Dictionary& text) {
    if (!channel().agree(text, _key, true)) {
        return false;
    }
    Dictionary offer = makeText("offer");
    _source->describe(offer);
    send(offer);
    return true;
}

bool Sender::onAccept(const Dictionary& text) {
    const auto window = getNumber(text, "window");
    if (!window || *window == 0) {
        return false;
    }
    _window = std::min<uint64_t>(*window, kMaxWindow);
    if (const auto from = getNumber(text, "from")) {
        skip(*from, text.getString("checksum"));
    } else {
        begin();
    }
    return true;
}

void Sender::skip(uint64_t from, const std::string& checksum) {
    progress();
    const bool isDone = _source->skip(from, checksum);
    if (isDone) {
        begin();
    } else if (!hasEnded()) {
        post([this, from, checksum] { skip(from, checksum); });
    }
}

void Sender::begin() {
    progress();
    _path.begin(*channel().keys(), _receiver);
    _transmitter.emplace(_loop, _path, *this, _source->latencyUs(), _source->firstRate());
    watch(_path.socket(), RunLoop::READABLE, [this] { receiveDatagrams(); });
    _transmitter->open();
    if (_statistics.isWanted()) {
        addTimer(kStatsMs, true, [this] { report(); });
    }
}

void Sender::receiveDatagrams() {
    _path.receive([this](const Packet& packet) {
        if (!hasEnded()) {
            _transmitter->take(packet);
        }
    });
}

/// A stream may pause for any time.
void Sender::onOpen() {
    progress();
    setResting(_isLive);
    if (_isLive) {
        warnOfLatency();
    } else {
        Standing(0, _source->size()).send(_events, "begun");
    }
    _source->start(*_transmitter, _window);
}

void Sender::warnOfLatency() const {
    const uint64_t wayUs = _transmitter->roundTrip().minUs() / 2;
    if (wayUs >= _source->latencyUs()) {
        Statistics::print("nothing can arrive in time: the latency is " +
                          Statistics::milliseconds(_source->latencyUs()) +
                          ", and half of the round trip " + Statistics::milliseconds(wayUs) + "\n");
    }
}

void Sender::onRoom() {
    if (!hasEnded()) {
        _source->fill();
    }
}

void Sender::onConfirmed() {
    if (hasEnded()) {
        return;
    }
    progress();
    _source->onConfirmed();
    if (!_isLive) {
        const uint64_t bytes = _transmitter->confirmed() * kFileChunk;
        Standing(std::min(bytes, _source->size()), _source->size()).send(_events, "moved");
    }
}

void Sender::onFinished(const Dictionary& text) {
    if (hasEnded()) {
        return;
    }
    _finished = true;
    setResting(false);
    send(text);
}

void Sender::onFailed(const std::string& error) {
    end(error);
}

void Sender::onDeaf() {
    end(_transmitter->roundTrip().isKnown()
            ? "no datagram comes back from the receiver any more, though the connection stands"
            : "no datagram comes back from the receiver, though the connection stands: a firewall "
              "may block UDP");
}

/// Before the first chunk and after the last one the receiver waits for its disk. That may take
/// long. If its disk stalls, the receiver ends the transfer.
void Sender::checkProgress() {
    const bool isAllThere = _transmitter && _transmitter->waiting() == 0;
    if (_transmitter ? isAllThere && _finished : channel().isProved()) {
        progress();
    } else {
        Endpoint::checkProgress();
    }
}

bool Sender::onDone(const Dictionary& text) {
    const auto arrived = getNumber(text, "arrived");
    if (!_finished || !arrived) {  // does not wait for the last feedback, which may be lost
        return false;
    }
    const uint64_t sent = _path.next();
    _lost = sent - std::min(*arrived, sent);
    if (_isLive) {
        _statistics.print(details());
    } else {
        Standing(_source->size(), _source->size(), details()).send(_events, "finished");
    }
    skipFarewell();
    end("");
    return true;
}

void Sender::onEnd() {
    if (_transmitter) {
        _transmitter->close();
    }
}

void Sender::report() {
    const Transmitter& sent = *_transmitter;
    const uint64_t kilobits = 125;  // in bytes
    _statistics.report({{"sent", "kbit/s", Statistics::PER_SECOND, sent.counts().bytes / kilobits},
                        {"wire", "kbit/s", Statistics::PER_SECOND, _path.bytesSent() / kilobits},
                        {"round trip", "us", Statistics::NOW, sent.roundTrip().smoothedUs()},
                        {"bandwidth", "kbit/s", Statistics::NOW, sent.bandwidth() / kilobits},
                        {"lost", "", Statistics::PER_SECOND, sent.flight().lost()},
                        {"sent again", "", Statistics::PER_SECOND, sent.counts().again},
                        {"dropped", "", Statistics::PER_SECOND, sent.counts().dropped}});
}

std::string Sender::details() const {
    const Transmitter::Counts& counts = _transmitter->counts();
    std::string text =
        "  datagrams: " + std::to_string(_path.next()) + " sent, " + std::to_string(_lost) +
        " lost, " + std::to_string(counts.again) +
        " sent again\n  round trip: " + std::to_string(_transmitter->roundTrip().minUs()) +
        " us at best, " + std::to_string(_transmitter->roundTrip().smoothedUs()) + " us lately\n";
    if (_isLive) {
        text = "sent " + std::to_string(counts.bytes) + " bytes in " +
               std::to_string(_transmitter->added()) + " chunks, " +
               std::to_string(counts.dropped) + " dropped as too old\n" + text;
    }
    return text;
}

}  // namespace mirror
