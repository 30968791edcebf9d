#include "receiver.h"

#include <nivur/log.h>
#include <nivur/system_util.h>

#include <cerrno>
#include <cstring>
#include <random>
#include <utility>

#include "progress.h"
#include "texts.h"

using NIVUR::Buffer;
using NIVUR::Dictionary;
using NIVUR::Log;
using NIVUR::RunLoop;
using NIVUR::Socket;
using NIVUR::SystemUtil;

namespace mirror {

namespace {

constexpr unsigned int kWindow = 8192;
constexpr unsigned int kRoomSize = kDatagramSize + 1;  // shows which datagrams are too long
constexpr int kDatagramsPerPass = 64;
constexpr unsigned int kTickMs = 5;
constexpr uint64_t kFramesPerHave = 32;
constexpr unsigned int kMaxOffsets = 256;

const NIVUR::BufferPool_Config& poolConfig() {
    static const NIVUR::BufferPool_Config config{{{kRoomSize, kWindow + 1}}};
    return config;
}

}  // namespace

Receiver::Receiver(const std::string& path, unsigned int dropPercent, NIVUR::EventCenter& events)
    : Endpoint("recv", "sender", events),
      _pool(&poolConfig(), "datagrams received"),
      _disk(path, _loop, [this](const std::string& error) { onWritten(error); }),
      _dropper(dropPercent),
      _reassembly(kWindow) {}

Receiver::~Receiver() {
    _disk.stop();  // while there is a loop that takes its replies
    stopLoop();
}

std::optional<Address> Receiver::start(const Address& at) {
    std::string error = _ports.open(at);
    if (error.empty() && !watchPorts()) {
        error = "cannot watch the sockets";
    }
    if (!error.empty()) {
        end(error);
        return std::nullopt;
    }
    const Address address{at.ip, _ports.listener().port()};
    return startLoop() ? std::optional(address) : std::nullopt;
}

bool Receiver::watchPorts() {
    const auto onDatagrams = [this] { receiveDatagrams(); };
    return watch(_ports.datagrams(), RunLoop::READABLE, onDatagrams) != 0 && watchListener();
}

bool Receiver::watchListener() {
    _listening = watch(_ports.listener(), RunLoop::READABLE, [this] { welcome(); });
    return _listening != 0;
}

void Receiver::dump() {
    Endpoint::dump();
    _disk.dump();
}

void Receiver::welcome() {
    auto socket = _ports.accept();
    if (socket == nullptr) {
        onNoConnection(Socket::getError());
    } else if (!isConnected()) {
        connect(std::move(socket));
    } else {
        const std::string line = toLine(makeRefusal("busy with another sender"));
        socket->setLogEnabled(false);
        socket->send(line.data(), static_cast<unsigned int>(line.size()), nullptr);
        ++_turnedAway;
    }
}

/// Without a descriptor for it, a connection keeps the listener ready. A receiver that is busy
/// looks at the listener no more until it needs another sender.
void Receiver::onNoConnection(int reason) {
    if (reason != EMFILE && reason != ENFILE) {
        return;
    }
    if (isConnected()) {
        _loop.removeWatch(std::exchange(_listening, 0));
    } else {
        end("cannot take a connection: " + std::string(std::strerror(reason)));
    }
}

void Receiver::turnAway(const std::string& reason) {
    Log::log("mirror", NIVUR::LOG_WARN, "turned %s away, since it %s", peer().c_str(),
             reason.c_str());
    send(makeRefusal("the sender " + reason));
    disconnect();
    ++_turnedAway;
    if (_listening == 0) {
        watchListener();
    }
}

void Receiver::receiveDatagrams() {
    std::string ip;
    uint16_t port = 0;
    for (int i = 0; i < kDatagramsPerPass; ++i) {
        if (!_datagram) {
            _datagram = _pool.getPoolBuffer(kRoomSize, nullptr);
        }
        unsigned int size = kRoomSize;
        if (!_datagram || !_ports.datagrams().recvfrom(ip, port, _datagram->data(), size)) {
            _ignored += i == 0 ? 1 : 0;  // there was one, without any bytes
            break;
        }
        if (_stage >= Stage::RECEIVING && _dropper.chooses()) {
            ++_dropped;
        } else if (isFrame(ip, size)) {
            _datagram->setUsedSize(size);
            takeFrame();
        } else {
            ++_ignored;
        }
    }
    passOn();
}

/// Whether the datagram is a frame of this transfer, as far as can be told.
bool Receiver::isFrame(const std::string& ip, unsigned int size) {
    const auto header = FrameHeader::read(_datagram->data(), size);
    return _stage >= Stage::RECEIVING && header && header->session == _session && ip == peer() &&
           header->index < _layout.frames() && size == kHeaderSize + _layout.sizeOf(header->index);
}

void Receiver::takeFrame() {
    const auto header = FrameHeader::read(_datagram->data(), _datagram->usedSize());
    _echoUs = header->sentUs;
    switch (_reassembly.add(header->index, _datagram, SystemUtil::getCPUTime())) {
        case Reassembly::Outcome::TAKEN:
            return;
        case Reassembly::Outcome::DUPLICATE:
            ++_duplicates;
            return;
        case Reassembly::Outcome::OUTSIDE:
            ++_ignored;
            return;
    }
}

void Receiver::onWritten(const std::string& error) {
    if (!error.empty()) {
        end(error);
    } else {
        passOn();
    }
}

/// Gives the disk what is in order, as far as the disk has room. What it has no room for is not
/// confirmed, which holds the sender back.
void Receiver::passOn() {
    if (_stage != Stage::RECEIVING || hasEnded()) {
        return;
    }
    while (const Buffer* const frame = _reassembly.first()) {
        if (!_disk.write(frame->data() + kHeaderSize, frame->usedSize() - kHeaderSize)) {
            break;  // onWritten() goes on
        }
        _reassembly.pop();
        progress();
    }
    if (_reassembly.taken() - _acknowledged.taken >= kFramesPerHave) {
        acknowledge();
    }
    if (!_checksum.empty() && _reassembly.base() == _layout.frames()) {
        commit();
    }
}

void Receiver::acknowledge() {
    _acknowledged = {_reassembly.base(), _reassembly.taken()};
    Dictionary text = makeText("have");
    setNumber(text, "frames", _reassembly.base());
    setNumber(text, "newest", _reassembly.newest());
    setNumber(text, "echo", _echoUs);
    send(text);
}

void Receiver::tick() {
    _disk.flush();
    if (_acknowledged.base != _reassembly.base() || _acknowledged.taken != _reassembly.taken()) {
        acknowledge();
        Standing(_disk.written(), _layout.fileSize).send(_events, "moved");
    }
    askForMissing();
}

void Receiver::askForMissing() {
    const auto offsets = _reassembly.overdue(kMaxOffsets, SystemUtil::getCPUTime());
    if (!offsets.empty()) {
        _askedAgain += offsets.size();
        Dictionary text = makeText("missing");
        setNumber(text, "from", _reassembly.base());
        text.setIntegerArray("offsets", offsets);
        send(text);
    }
}

/// From here on only the disk can fail, and what becomes of the sender does not matter.
void Receiver::commit() {
    acknowledge();
    expectNoProgress();
    _stage = Stage::COMMITTING;
    _disk.commit(_checksum, [this](const std::string& error) { onCommitted(error); });
}

void Receiver::onCommitted(const std::string& error) {
    if (error.empty() && !hasEnded()) {
        Standing(_layout.fileSize, _layout.fileSize, details()).send(_events, "finished");
        Dictionary text = makeText("done");
        setNumber(text, "arrived", _layout.frames() + _duplicates);
        send(text);
    }
    end(error);
}

std::string Receiver::details() const {
    return "  frames: " + std::to_string(_layout.frames()) + " received, " +
           std::to_string(_askedAgain) +
           " asked for again\n  datagrams: " + std::to_string(_dropped) + " dropped on purpose, " +
           std::to_string(_duplicates) + " duplicates, " + std::to_string(_ignored) +
           " ignored\n  connections: " + std::to_string(_turnedAway) + " turned away\n";
}

/// A sender may send on before it has read that its offer is accepted.
bool Receiver::handle(const std::string& type, const Dictionary& text) {
    if (type == "offer") {
        return _stage == Stage::WAITING && onOffer(text);
    }
    return _stage != Stage::WAITING &&
           ((type == "index" && onIndex(text)) || (type == "finished" && onFinished(text)));
}

bool Receiver::onOffer(const Dictionary& text) {
    const auto size = getNumber(text, "size");
    const auto frameSize = getNumber(text, "frameSize");
    if (!size || !frameSize || *frameSize > kMaxFrameSize) {
        return false;
    }
    _layout = {*size, static_cast<unsigned int>(*frameSize)};
    if (!_layout.isValid()) {
        return false;
    }
    _stage = Stage::OPENING;
    _disk.open([this, name = printable(text.getString("name"))](const std::string& error) {
        error.empty() ? accept(name) : end(error);
    });
    return true;
}

void Receiver::accept(const std::string& name) {
    if (hasEnded()) {
        return;
    }
    std::random_device random;
    _session = uint64_t{random()} << 32 | random();
    _stage = Stage::RECEIVING;
    progress();
    Standing(0, _layout.fileSize, "receiving " + name + " from " + peer() + "\n")
        .send(_events, "begun");
    Dictionary text = makeText("accept");
    setNumber(text, "session", _session);
    setNumber(text, "window", kWindow);
    send(text);
    addTimer(kTickMs, true, [this] { tick(); });
    passOn();
}

bool Receiver::onIndex(const Dictionary& text) {
    const auto sent = getNumber(text, "sent");
    if (!sent || *sent > _layout.frames()) {
        return false;
    }
    _reassembly.expect(*sent, SystemUtil::getCPUTime());
    return true;
}

bool Receiver::onFinished(const Dictionary& text) {
    _checksum = text.getString("checksum");
    const bool valid = !_checksum.empty() && getNumber(text, "size") == _layout.fileSize;
    if (valid) {
        passOn();
    }
    return valid;
}

void Receiver::onLost(const std::string& reason) {
    if (_stage == Stage::WAITING) {
        turnAway(reason);
    } else if (_stage != Stage::COMMITTING) {
        Endpoint::onLost(reason);
    }
}

}  // namespace mirror
