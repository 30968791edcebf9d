#include "receiver.h"

#include <nivur/log.h>
#include <nivur/system_util.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "file_sink.h"
#include "live_sink.h"
#include "progress.h"
#include "texts.h"

using NIVUR::Dictionary;
using NIVUR::Log;
using NIVUR::RunLoop;
using NIVUR::Socket;

namespace mirror {

namespace {

constexpr unsigned int kWindow = 16384;
constexpr int kDatagramsPerPass = 128;
constexpr unsigned int kTickMs = 20;
constexpr unsigned int kPauseMs = 200;
constexpr unsigned int kStatsMs = 1000;
constexpr unsigned int kOfferMs = 3000;

}  // namespace

Receiver::Receiver(const Options& options, NIVUR::EventCenter& events)
    : Endpoint("recv", "sender", options.key, events),
      _isLive(options.isLive),
      _path(_loop, options.dropPercent, [] {}),
      _statistics(options.stats) {
    if (_isLive) {
        _sink = std::make_unique<LiveSink>(_loop, *this);
    } else {
        _sink = std::make_unique<FileSink>(options.destination, _loop, events, *this);
    }
}

Receiver::~Receiver() {
    _sink->stop();  // while there is a loop that takes its replies
    stopLoop();
}

std::optional<Address> Receiver::start(const Address& at) {
    std::string error = _ports.open(at, _path.socket());
    const auto onDatagrams = [this] { receiveDatagrams(); };
    if (error.empty() &&
        (watch(_path.socket(), RunLoop::READABLE, onDatagrams) == 0 || !watchListener())) {
        error = "cannot watch the sockets";
    }
    if (!error.empty()) {
        end(error);
        return std::nullopt;
    }
    const Address address{at.ip, _ports.listener().port()};
    return startLoop(_isLive) ? std::optional(address) : std::nullopt;
}

bool Receiver::watchListener() {
    if (_listening != 0 || hasEnded()) {
        return true;
    }
    _listening = watch(_ports.listener(), RunLoop::READABLE, [this] { welcome(); });
    return _listening != 0;
}

void Receiver::dump() {
    Endpoint::dump();
    _sink->dump();
}

void Receiver::welcome() {
    auto socket = _ports.accept();
    if (socket == nullptr) {
        pauseListening();
    } else if (!isConnected()) {
        connect(std::move(socket));
        _loop.removeWatch(std::exchange(_listening, 0));  // others wait until this one is judged
    } else {
        const std::string line = toLine(makeRefusal("busy with another sender"));
        socket->setLogEnabled(false);
        socket->send(line.data(), static_cast<unsigned int>(line.size()), nullptr);
        ++_turnedAway;
    }
}

/// A connection for which there is no descriptor keeps the listener ready: it is left alone for a
/// while.
void Receiver::pauseListening() {
    _loop.removeWatch(std::exchange(_listening, 0));
    addTimer(kPauseMs, false, [this] { watchListener(); });
}

void Receiver::turnAway(const std::string& reason) {
    Log::log("mirror", NIVUR::LOG_WARN, "turned %s away, since it %s", peer().c_str(),
             reason.c_str());
    send(makeRefusal("the sender " + reason));
    disconnect();
    _keys.reset();
    ++_turnedAway;
    watchListener();
}

void Receiver::receiveDatagrams() {
    if (_collector) {
        _sink->beforeChunks();
    }
    for (int i = 0; i < kDatagramsPerPass; ++i) {
        auto packet = _path.receive();
        if (!packet || !_collector) {
            break;
        }
        const bool isTiming = packet->kind == PacketKind::TIMING;
        _collector->take(std::move(*packet));
        if (isTiming) {
            _sink->onTiming(_collector->timing());
        }
    }
    if (_collector && !hasEnded()) {
        _sink->onChunks();
        _collector->report();
    }
}

void Receiver::tick() {
    _sink->tick();
}

/// A sender may send on before it has read that its offer is accepted.
bool Receiver::handle(const std::string& type, const Dictionary& text) {
    if (!_keys) {
        return type == "hello" && onHello(text);
    }
    if (type == "offer") {
        return _stage == Stage::WAITING && onOffer(text);
    }
    if (type == "finished" && _stage == Stage::RECEIVING) {
        if (_isLive) {
            setResting(false);
            addTimer(kTickMs, true, [this] { tick(); });
        }
        return _sink->finish(text);
    }
    return false;
}

bool Receiver::onHello(const Dictionary& text) {
    sayHello();
    _keys = secure(text, false);
    return _keys.has_value();
}

bool Receiver::onOffer(const Dictionary& text) {
    _stage = Stage::OPENING;
    if (!_sink->take(text)) {
        _stage = Stage::WAITING;
        return false;
    }
    return true;
}

void Receiver::onReady() {
    if (hasEnded()) {
        return;
    }
    _stage = Stage::RECEIVING;
    watchListener();
    progress();
    const std::string title = "receiving " + _sink->title() + " from " + peer() + "\n";
    if (_isLive) {
        setResting(true);
        Statistics::print(title);
    } else {
        Standing(0, 0, title).send(_events, "begun");
        addTimer(kTickMs, true, [this] { tick(); });
    }
    _path.begin(*_keys, {});
    _collector.emplace(_loop, _path, kWindow, _isLive);
    _sink->start(_collector->chunks());
    Dictionary text = makeText("accept");
    setNumber(text, "window", kWindow);
    send(text);
    if (_statistics.isWanted()) {
        addTimer(kStatsMs, true, [this] { report(); });
    }
}

void Receiver::onFailed(const std::string& error) {
    end(error);
}

void Receiver::onMoved() {
    progress();
}

/// From here on only the disk can fail, and what becomes of the sender does not matter.
void Receiver::onArrived() {
    _stage = Stage::COMMITTING;
    _collector->confirm();
}

void Receiver::onComplete(const std::string& summary) {
    if (hasEnded()) {
        return;
    }
    if (_isLive) {
        Statistics::print(summary + details());
    } else {
        Standing(_collector->counts().bytes, _collector->counts().bytes, details())
            .send(_events, "finished");
    }
    Dictionary text = makeText("done");
    setNumber(text, "arrived", _collector->counts().packets);
    send(text);
    end("");
}

void Receiver::report() {
    const Collector::Counts& counts = _collector->counts();
    const uint64_t sent = _collector->packetsSent();
    std::vector<Statistics::Figure> figures = {
        {"received", "kbit/s", Statistics::PER_SECOND, counts.bytes / 125},
        {"round trip", "us", Statistics::NOW, _collector->timing().roundTripUs},
        {"lost", "", Statistics::PER_SECOND, sent - counts.packets},
        {"recovered", "", Statistics::PER_SECOND, counts.recovered}};
    for (const Statistics::Figure& figure : _sink->figures()) {
        figures.push_back(figure);
    }
    _statistics.report(figures);
}

std::string Receiver::details() const {
    const Collector::Counts& counts = _collector->counts();
    return "  chunks: " + std::to_string(counts.chunks) + " received, " +
           std::to_string(counts.recovered) +
           " of them sent again\n  datagrams: " + std::to_string(_path.dropped()) +
           " dropped on purpose, " + std::to_string(counts.duplicates) + " duplicates, " +
           std::to_string(_path.ignored() + counts.ignored) +
           " ignored\n  connections: " + std::to_string(_turnedAway) + " turned away\n";
}

void Receiver::onLost(const std::string& reason) {
    if (_stage == Stage::WAITING) {
        turnAway(reason);
    } else if (_stage != Stage::COMMITTING) {
        Endpoint::onLost(reason);
    }
}

/// Who stands still may be the sink, and a stream may.
void Receiver::checkProgress() {
    const std::string obstacle = _sink->obstacle();
    if (_stage == Stage::WAITING) {
        if (standsStill(kOfferMs)) {
            turnAway("has offered nothing");
        }
    } else if (!obstacle.empty()) {
        end(obstacle);
    } else if (!_sink->expectsProgress() || _stage == Stage::COMMITTING) {
        progress();
    } else {
        Endpoint::checkProgress();
    }
}

}  // namespace mirror
