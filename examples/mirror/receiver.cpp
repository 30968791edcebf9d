#include "receiver.h"

#include <utility>

#include "file_sink.h"
#include "limits.h"
#include "live_sink.h"
#include "progress.h"
#include "texts.h"

using NIVUR::ClientSocket;
using NIVUR::Dictionary;
using NIVUR::IoResult;
using NIVUR::RunLoop;

namespace mirror {

namespace {

constexpr unsigned int kTickMs = 20;
constexpr unsigned int kPauseMs = 200;

}  // namespace

Receiver::Receiver(const Options& options, NIVUR::EventCenter& events)
    : Endpoint("recv", "sender", events),
      _isLive(options.isLive),
      _lobby(_loop, options.key, *this),
      _path(_loop, options.dropPercent, [] {}),
      _statistics(options.stats) {
    if (_isLive) {
        _sink = std::make_unique<LiveSink>(_loop, *this);
    } else {
        _sink =
            std::make_unique<FileSink>(options.destination, options.resumes, _loop, events, *this);
    }
}

Receiver::~Receiver() {
    _sink->stop();  // before the loop, which runs its replies
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
    auto socket = std::make_unique<ClientSocket>();
    const IoResult result = _ports.listener().accept(*socket);
    if (result) {
        _lobby.add(std::move(socket));
    } else if (result.status == IoResult::FAILED) {
        pauseListening();
    }
}

/// Without a free descriptor, a pending connection would keep the listener ready in a busy loop.
/// Turns away the oldest client to free one, and does not watch the listener for a while.
void Receiver::pauseListening() {
    _lobby.makeRoom();
    _loop.removeWatch(std::exchange(_listening, 0));
    addTimer(kPauseMs, false, [this] { watchListener(); });
}

void Receiver::receiveDatagrams() {
    if (_collector) {
        _sink->beforeChunks();
    }
    _path.receive([this](Packet packet) { take(std::move(packet)); });
    if (_collector && !hasEnded()) {
        _sink->onChunks();
        _collector->report();
    }
}

void Receiver::take(Packet packet) {
    if (_collector && !hasEnded()) {
        const bool isTiming = packet.kind == PacketKind::TIMING;
        _collector->take(std::move(packet));
        if (isTiming) {
            _sink->onTiming(_collector->timing());
        }
    }
}

void Receiver::tick() {
    _sink->tick();
}

bool Receiver::handle(const std::string& type, const Dictionary& text) {
    if (type != "finished" || _stage != Stage::RECEIVING || std::exchange(_finished, true)) {
        return false;
    }
    if (_isLive) {
        setResting(false);
        addTimer(kTickMs, true, [this] { tick(); });
    }
    return _sink->finish(text);
}

bool Receiver::onOffer(std::unique_ptr<ControlChannel>& channel, const Dictionary& offer) {
    if (!_sink->take(offer)) {
        return false;
    }
    _stage = Stage::OPENING;
    connect(std::move(channel));
    _lobby.refuseAll("busy with another sender");
    return true;
}

/// Posts, because the sink may call this from within take().
void Receiver::onReady() {
    post([this] { begin(); });
}

void Receiver::begin() {
    if (hasEnded()) {
        return;
    }
    _stage = Stage::RECEIVING;
    progress();
    const std::string title = "receiving " + _sink->title() + " from " + channel().peer() + "\n";
    if (_isLive) {
        setResting(true);
        Statistics::print(title);
    } else {
        Standing(0, 0, title).send(_events, "begun");
        addTimer(kTickMs, true, [this] { tick(); });
    }
    _path.begin(*channel().keys(), {});
    _collector.emplace(_loop, _path, kMaxWindow, _isLive);
    _sink->start(_collector->chunks());
    Dictionary text = makeText("accept");
    setNumber(text, "window", kMaxWindow);
    _sink->describe(text);
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

/// From now on only the disk can fail; losing the sender is no error any more.
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
           " ignored\n  connections: " + std::to_string(_lobby.turnedAway()) + " turned away\n";
}

void Receiver::onLost(const std::string& reason) {
    if (_stage != Stage::COMMITTING) {
        Endpoint::onLost(reason);
    }
}

/// The sink may be stalled instead of the sender, and a live sender may pause.
void Receiver::checkProgress() {
    const std::string obstacle = _sink->obstacle();
    if (!obstacle.empty()) {
        end(obstacle);
    } else if (!_sink->expectsProgress() || _stage == Stage::COMMITTING) {
        progress();
    } else {
        Endpoint::checkProgress();
    }
}

}  // namespace mirror
