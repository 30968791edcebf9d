#include "sender.h"

#include <nivur/system_util.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <utility>

#include "progress.h"
#include "texts.h"

using NIVUR::Buffer;
using NIVUR::Dictionary;
using NIVUR::IoResult;
using NIVUR::RunLoop;
using NIVUR::SharedPtr;
using NIVUR::Socket;
using NIVUR::SystemUtil;

namespace mirror {

namespace {

constexpr unsigned int kAnnounceMs = 1;
constexpr unsigned int kConnectMs = 5000;
constexpr unsigned int kMaxWindow = 8192;

const NIVUR::BufferPool_Config& poolConfig() {
    static const NIVUR::BufferPool_Config config{{{kDatagramSize, kMaxWindow}}};
    return config;
}

}  // namespace

Sender::Sender(std::string path, NIVUR::EventCenter& events)
    : Endpoint("send", "receiver", events),
      _path(std::move(path)),
      _pool(&poolConfig(), "datagrams to send") {}

void Sender::start(const Address& to) {
    _to = to;
    _receiver = NIVUR::SocketAddress(to.ip, to.port);
    const std::string error = open();
    if (!error.empty()) {
        end(error);
        return;
    }
    if (startLoop()) {
        post([this] { createSockets(); });
    }
}

std::string Sender::open() {
    std::error_code error;
    _layout.fileSize = std::filesystem::file_size(_path, error);
    if (!error) {
        errno = 0;
        _file.open(_path, std::ios::binary);
        error.assign(_file ? 0 : errno, std::generic_category());
    }
    if (error) {
        return "cannot read " + _path + ": " + error.message();
    }
    return _layout.isValid() ? "" : _path + " is too large";
}

void Sender::createSockets() {
    _connecting = std::make_unique<NIVUR::ClientSocket>();
    _connecting->setLogEnabled(false);
    _udp.setLogEnabled(false);
    if (_connecting->create(_to.anyLocal(), 0) && _connecting->setBlocking(false) == 0 &&
        _udp.create(_to.anyLocal(), 0) && _udp.setBlocking(false) == 0) {
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
        failToConnect(EMFILE);  // the loop has no descriptors of its own
    }
}

void Sender::finishConnection(const IoResult& result) {
    if (result.status == IoResult::WOULD_BLOCK) {
        return;
    }
    _loop.removeWatch(_connectWatch);
    _loop.stopTimer(_connectTimer);
    if (result) {
        offer();
    } else {
        failToConnect(result.error);
    }
}

void Sender::failToConnect(int reason) {
    end("cannot connect to " + _to.text() + ": " + std::strerror(reason));
}

void Sender::offer() {
    connect(std::move(_connecting));
    Dictionary text = makeText("offer");
    setAnyString(text, "name", std::filesystem::path(_path).filename());
    setNumber(text, "size", _layout.fileSize);
    setNumber(text, "frameSize", _layout.frameSize);
    send(text);
}

bool Sender::handle(const std::string& type, const Dictionary& text) {
    using Operation = bool (Sender::*)(const Dictionary&);
    static const std::map<std::string, Operation> kHandlers = {{"accept", &Sender::onAccept},
                                                               {"have", &Sender::onHave},
                                                               {"missing", &Sender::onMissing},
                                                               {"done", &Sender::onDone}};
    const auto handler = kHandlers.find(type);
    const bool inOrder = (_maxWindow == 0) == (type == "accept");
    return handler != kHandlers.end() && inOrder && (this->*handler->second)(text);
}

bool Sender::onAccept(const Dictionary& text) {
    const auto session = getNumber(text, "session");
    const auto window = getNumber(text, "window");
    if (!session || !window || *window == 0) {
        return false;
    }
    _session = *session;
    _maxWindow = std::min<uint64_t>(*window, kMaxWindow);
    progress();
    Standing(0, _layout.fileSize).send(_events, "begun");
    if (_layout.frames() == 0) {
        sayFinished();
    }
    sendFrames();
    return true;
}

/// Tells the receiver how many frames it should see: it cannot miss the last ones otherwise.
void Sender::announce() {
    _announceTimer = 0;
    _announced = _window.next();
    Dictionary text = makeText("index");
    setNumber(text, "sent", _announced);
    send(text);
}

void Sender::sendFrames() {
    while (mayAddFrame()) {
        if (!readFrame()) {
            end(_path + " shrank while it was read");
            return;
        }
        if (_window.next() == _layout.frames()) {
            sayFinished();
        }
    }
    if (_announced != _window.next() && _announceTimer == 0) {
        _announceTimer = addTimer(kAnnounceMs, false, [this] { announce(); });
    }
}

bool Sender::mayAddFrame() const {
    return _roomWatch == 0 && _window.next() < _layout.frames() &&
           _window.next() - _window.base() < _maxWindow && _window.onTheWay() < _pace.limit();
}

bool Sender::readFrame() {
    const uint64_t index = _window.next();
    const unsigned int size = _layout.sizeOf(index);
    SharedPtr<Buffer> datagram = _pool.getPoolBuffer(kDatagramSize, nullptr);
    if (!datagram || !_file.read(datagram->data() + kHeaderSize, size)) {
        return false;
    }
    datagram->setUsedSize(kHeaderSize + size);
    _checksum.add(datagram->data() + kHeaderSize, size);
    _window.add(std::move(datagram), SystemUtil::getCPUTimeInMicroseconds());
    transmit(index);
    return true;
}

/// A datagram that the system refuses for other reasons than lack of room is as good as lost on the
/// way, and asked for again.
void Sender::transmit(uint64_t index) {
    const Buffer& datagram = *_window.find(index);
    FrameHeader{_session, SystemUtil::getCPUTimeInMicroseconds(), static_cast<uint32_t>(index)}
        .write(datagram.data());
    const IoResult sent = _udp.sendto(_receiver, datagram.data(), datagram.usedSize());
    if (sent.status == IoResult::WOULD_BLOCK) {
        pause(index);
    } else {
        ++_datagrams;
    }
}

/// Sends nothing until the system has room for another datagram.
void Sender::pause(uint64_t index) {
    _refused = index;
    _roomWatch = watch(_udp, RunLoop::WRITABLE, [this] { resume(); });
}

void Sender::resume() {
    _loop.removeWatch(std::exchange(_roomWatch, 0));
    if (_window.find(_refused) != nullptr) {
        transmit(_refused);
    }
    sendFrames();
}

void Sender::sayFinished() {
    if (_file.peek() != std::ifstream::traits_type::eof()) {
        end(_path + " grew while it was read");
        return;
    }
    Dictionary text = makeText("finished");
    setNumber(text, "size", _layout.fileSize);
    text.setString("checksum", _checksum.text());
    send(text);
}

bool Sender::onHave(const Dictionary& text) {
    const auto frames = getNumber(text, "frames");
    const auto end = getNumber(text, "newest");
    const uint64_t base = _window.base();
    const uint64_t newest = _window.newest();
    const auto echo = getNumber(text, "echo");
    const uint64_t nowUs = SystemUtil::getCPUTimeInMicroseconds();
    if (!frames || !end || !echo || *echo > nowUs || !_window.confirm(*frames, *end, nowUs)) {
        return false;
    }
    if (_echoUs != *echo) {
        _echoUs = *echo;
        _pace.arrived(_window.newest() - newest, nowUs - *echo);
    }
    if (_window.base() != base) {
        progress();
        const uint64_t bytes = _window.base() * _layout.frameSize;
        Standing(std::min(bytes, _layout.fileSize), _layout.fileSize).send(_events, "moved");
    }
    sendFrames();
    return true;
}

bool Sender::onMissing(const Dictionary& text) {
    const auto from = getNumber(text, "from");
    if (!from) {
        return false;
    }
    for (const long long offset : text.getIntegerArray("offsets")) {
        const uint64_t index = *from + static_cast<uint64_t>(offset);
        if (offset < 0 || *from > _window.next() || index >= _window.next()) {
            return false;
        }
        sendAgain(index);
    }
    return true;
}

/// Sends a frame again, unless it has arrived meanwhile, can still be on its way, or would have to
/// wait for room: then it is asked for once more.
void Sender::sendAgain(uint64_t index) {
    const Buffer* const datagram = _window.find(index);
    if (datagram == nullptr || _roomWatch != 0) {
        return;
    }
    const uint64_t sentUs = FrameHeader::read(datagram->data(), datagram->usedSize())->sentUs;
    if (SystemUtil::getCPUTimeInMicroseconds() - sentUs >= _pace.roundTripUs()) {
        transmit(index);
        _pace.lost();
        ++_sentAgain;
    }
}

bool Sender::onDone(const Dictionary& text) {
    const auto arrived = getNumber(text, "arrived");
    if (_window.base() != _layout.frames() || !arrived) {
        return false;
    }
    _lost = _datagrams - std::min(*arrived, _datagrams);  // the network may double some
    Standing(_layout.fileSize, _layout.fileSize, details()).send(_events, "finished");
    end("");
    return true;
}

std::string Sender::details() const {
    const Latencies& latencies = _window.latencies();
    return "  datagrams: " + std::to_string(_datagrams) + " sent, " + std::to_string(_lost) +
           " lost, " + std::to_string(_sentAgain) + " sent again\n  frame latency: median " +
           std::to_string(latencies.percentile(50)) + " us, 99th percentile " +
           std::to_string(latencies.percentile(99)) + " us\n";
}

}  // namespace mirror
