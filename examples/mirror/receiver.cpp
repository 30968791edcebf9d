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
using NIVUR::makeRunnable;
using NIVUR::Socket;
using NIVUR::SystemUtil;

namespace mirror {

namespace {

constexpr unsigned int kWindow = 8192;
constexpr unsigned int kRoomSize = kDatagramSize + 1;  // shows which datagrams are too long
constexpr unsigned int kSocketBuffer = 4 * 1024 * 1024;
constexpr int kDatagramsPerPoll = 64;
constexpr unsigned int kIdlePollMs = 20;
constexpr unsigned int kPollMs = 1;
constexpr unsigned int kTickMs = 5;
constexpr uint64_t kFramesPerHave = 32;
constexpr unsigned int kMaxOffsets = 256;
constexpr int kPortAttempts = 10;

const NIVUR::BufferPool_Config& poolConfig() {
    static const NIVUR::BufferPool_Config config{{{kRoomSize, kWindow + 1}}};
    return config;
}

}  // namespace

Receiver::Receiver(const std::string& path, unsigned int dropPercent, NIVUR::EventCenter& events)
    : Endpoint("recv", "sender", events),
      _pool(&poolConfig(), "datagrams received"),
      _disk(path),
      _dropper(dropPercent),
      _reassembly(kWindow) {
    _listener.setLogEnabled(false);
    _udp.setLogEnabled(false);
}

std::optional<Address> Receiver::start(const Address& at) {
    bool listening = false;
    for (int i = 0; !listening && i < kPortAttempts; ++i) {
        listening = listen(at);
    }
    if (!listening) {
        end("cannot listen on " + at.text() + ": " + std::strerror(Socket::getError()));
        return std::nullopt;
    }
    _udp.setBufLength(kSocketBuffer);
    // A timer of no time runs in every pass of the loop.
    _loop.addTimer(makeRunnable([this] { poll(); }), 0, true);
    startLoops();
    return Address{at.ip, _listener.port()};
}

/// Takes the same port for both kinds of socket; which one the system chooses may be taken for the
/// other kind.
bool Receiver::listen(const Address& at) {
    _listener.close();
    _udp.close();
    return _listener.create(at.ip, at.port) && _udp.create(at.ip, _listener.port()) &&
           _listener.listen(8) && _listener.setBlocking(false) == 0 && _udp.setBlocking(false) == 0;
}

void Receiver::dump() {
    Endpoint::dump();
    _disk.dump();
}

void Receiver::poll() {
    if (hasEnded()) {
        SystemUtil::sleep(kPollMs);
        return;
    }
    const unsigned int waitMs = _accepted ? kPollMs : kIdlePollMs;
    for (const Socket* socket : Socket::waitMultipleSocket({&_listener, &_udp}, waitMs)) {
        if (socket == &_udp) {
            receiveDatagrams();
        } else {
            welcome();
        }
    }
    if (_accepted) {
        passOn();
    }
}

void Receiver::welcome() {
    std::unique_ptr<NIVUR::ClientSocket> socket(_listener.accept());
    if (socket == nullptr) {
        const int reason = Socket::getError();
        if (!isConnected() && (reason == EMFILE || reason == ENFILE)) {
            end("cannot take a connection: " + std::string(std::strerror(reason)));
        }
        return;
    }
    if (!isConnected()) {
        connect(std::move(socket));
        return;
    }
    const std::string line = toLine(makeRefusal("busy with another sender"));
    socket->setLogEnabled(false);
    socket->send(line.data(), static_cast<unsigned int>(line.size()), nullptr);
    ++_turnedAway;
}

void Receiver::turnAway(const std::string& reason) {
    Log::log("mirror", NIVUR::LOG_WARN, "turned %s away, since it %s", peer().c_str(),
             reason.c_str());
    send(makeRefusal("the sender " + reason));
    disconnect();
    ++_turnedAway;
}

void Receiver::receiveDatagrams() {
    std::string ip;
    uint16_t port = 0;
    for (int i = 0; i < kDatagramsPerPoll; ++i) {
        if (!_datagram) {
            _datagram = _pool.getPoolBuffer(kRoomSize, nullptr);
        }
        unsigned int size = kRoomSize;
        if (!_datagram || !_udp.recvfrom(ip, port, _datagram->data(), size)) {
            _ignored += i == 0 ? 1 : 0;  // there was one, without any bytes
            return;
        }
        if (_accepted && _dropper.chooses()) {
            ++_dropped;
        } else if (isFrame(ip, size)) {
            _datagram->setUsedSize(size);
            takeFrame();
        } else {
            ++_ignored;
        }
    }
}

/// Whether the datagram is a frame of this transfer, as far as can be told.
bool Receiver::isFrame(const std::string& ip, unsigned int size) {
    const auto header = FrameHeader::read(_datagram->data(), size);
    return _accepted && header && header->session == _session && ip == peer() &&
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

/// Gives the disk what is in order, as far as the disk has room. What it has no room for is not
/// confirmed, which holds the sender back.
void Receiver::passOn() {
    while (const Buffer* const frame = _reassembly.first()) {
        if (!_disk.write(frame->data() + kHeaderSize, frame->usedSize() - kHeaderSize)) {
            break;
        }
        _reassembly.pop();
        progress();
    }
    if (_reassembly.taken() - _acknowledged.taken >= kFramesPerHave) {
        acknowledge();
    }
    if (!_checksum.empty() && _reassembly.base() == _layout.frames()) {
        finish();
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
    if (hasEnded()) {
        return;
    }
    const std::string error = _disk.error();
    if (!error.empty()) {
        end(error);
        return;
    }
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

void Receiver::finish() {
    acknowledge();
    const std::string error = _disk.commit(_checksum);
    if (error.empty()) {
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

bool Receiver::handle(const std::string& type, const Dictionary& text) {
    if (type == "offer") {
        return !_accepted && onOffer(text);
    }
    return _accepted &&
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
    const std::string error = _disk.open();
    if (error.empty()) {
        accept(printable(text.getString("name")));
    } else {
        end(error);
    }
    return true;
}

void Receiver::accept(const std::string& name) {
    std::random_device random;
    _session = uint64_t{random()} << 32 | random();
    _accepted = true;
    progress();
    Standing(0, _layout.fileSize, "receiving " + name + " from " + peer() + "\n")
        .send(_events, "begun");
    Dictionary text = makeText("accept");
    setNumber(text, "session", _session);
    setNumber(text, "window", kWindow);
    send(text);
    _loop.addTimer(makeRunnable([this] { tick(); }), kTickMs, true);
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
    return !_checksum.empty() && getNumber(text, "size") == _layout.fileSize;
}

void Receiver::onLost(const std::string& deed) {
    if (hasEnded()) {
        return;
    }
    if (_accepted) {
        Endpoint::onLost(deed);
    } else {
        turnAway(deed);
    }
}

}  // namespace mirror
