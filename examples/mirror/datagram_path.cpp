#include "datagram_path.h"

#include <algorithm>
#include <utility>

#include "wire.h"

using NIVUR::IoResult;
using NIVUR::makeRunnable;

namespace mirror {

namespace {

constexpr unsigned int kPooledBodies = 4096;
constexpr size_t kMaxBatch = 45000;  // how much one call sends at most
constexpr size_t kRoomSize = 65535;  // how much one call may receive
constexpr size_t kOverhead = kHeaderSize + kTagSize;
constexpr unsigned int kNumberBits = 24;
constexpr uint64_t kDatagramsPerPass = 128;

const NIVUR::BufferPool_Config& poolConfig() {
    static const NIVUR::BufferPool_Config config{{{kMaxBody, kPooledBodies}}};
    return config;
}

}  // namespace

DatagramPath::DatagramPath(NIVUR::RunLoop& loop, unsigned int dropPercent,
                           std::function<void()> onWritable)
    : _loop(loop),
      _onWritable(std::move(onWritable)),
      _pool(&poolConfig(), "datagrams"),
      _dropper(dropPercent),
      _batch(kMaxBatch),
      _room(kRoomSize) {
    _socket.setLogEnabled(false);
}

void DatagramPath::begin(const SessionKeys& keys, const NIVUR::SocketAddress& peer) {
    end();
    _keys = keys;
    _peer = peer;
    _followsPeer = !peer.isValid();
}

void DatagramPath::end() {
    _loop.removeWatch(std::exchange(_roomWatch, 0));
    _keys.reset();
    _peer = {};
    _next = 0;
    _arrived = {};
    _batched = 0;
}

void DatagramPath::close() {
    end();
    _socket.close();
}

void DatagramPath::queue(PacketKind kind, const char* body, size_t size) {
    const size_t total = size + kOverhead;
    const bool isLastShorter = _datagram != 0 && _batched % _datagram != 0;
    if (_batched + total > kMaxBatch || total > _datagram || isLastShorter) {
        flush();
    }
    const uint64_t number = _next++;
    if (!_peer.isValid() || _batched + total > kMaxBatch) {
        return;  // as if the network had lost it
    }
    char* const datagram = _batch.data() + _batched;
    Writer header(datagram, kHeaderSize);
    header.number(static_cast<uint64_t>(kind), 1);
    header.number(number, kNumberBits / 8);
    Cipher(_keys->sendDatagrams)
        .seal(number, datagram, kHeaderSize, body, size, datagram + kHeaderSize);
    _datagram = _batched == 0 ? total : _datagram;
    _batched += total;
}

/// Datagrams that the kernel refuses for other reasons than a full buffer count as lost.
void DatagramPath::flush() {
    if (_batched == 0 || isBlocked()) {
        return;
    }
    const IoResult sent = _socket.sendDatagrams(_peer, _batch.data(), _batched, _datagram);
    const bool isFull = sent.status == IoResult::WOULD_BLOCK || (sent && sent.count < _batched);
    const size_t done = isFull ? sent.count : _batched;
    _bytesSent += done + (done + _datagram - 1) / _datagram * kWireOverhead;
    std::copy(_batch.data() + done, _batch.data() + _batched, _batch.data());
    _batched -= done;
    if (isFull) {
        watchRoom();
    }
    _datagram = _batched == 0 ? 0 : _datagram;
}

void DatagramPath::watchRoom() {
    _roomWatch = _loop.addWatch(_socket.descriptor(), NIVUR::RunLoop::WRITABLE,
                                makeRunnable([this] { onRoom(); }, this));
}

void DatagramPath::onRoom() {
    _loop.removeWatch(std::exchange(_roomWatch, 0));
    flush();
    if (!isBlocked()) {
        _onWritable();
    }
}

void DatagramPath::receive(const std::function<void(Packet)>& take) {
    const uint64_t begin = _handled;
    while (_handled - begin < kDatagramsPerPass && fetch()) {
        while (_taken < _fetched) {
            if (auto packet = takeNext()) {
                take(std::move(*packet));
            }
        }
    }
}

/// Receives datagrams with one call; false if none has arrived.
bool DatagramPath::fetch() {
    _taken = 0;
    const IoResult received = _socket.receiveDatagrams(_from, _room.data(), _room.size(), _segment);
    _fetched = received ? received.count : 0;
    const bool isEmpty = received && received.count == 0;
    _handled += isEmpty ? 1 : 0;
    _ignored += isEmpty ? 1 : 0;
    return received.status == IoResult::DONE;
}

/// The next fetched datagram; nullopt if it is dropped or invalid.
std::optional<Packet> DatagramPath::takeNext() {
    const char* const bytes = _room.data() + _taken;
    const size_t size = std::min(_segment, _fetched - _taken);
    _taken += size;
    ++_handled;
    if (_keys && _dropper.chooses()) {
        ++_dropped;
        return std::nullopt;
    }
    auto packet = open(bytes, size);
    _ignored += packet ? 0 : 1;
    return packet;
}

std::optional<Packet> DatagramPath::open(const char* bytes, size_t size) {
    Reader header(bytes, size);
    const auto kind = static_cast<PacketKind>(header.number(1));
    const uint64_t number = nearest(_arrived.next(), header.number(kNumberBits / 8), kNumberBits);
    if (!_keys || size < kOverhead || size > kOverhead + kMaxBody || !_arrived.isNew(number)) {
        return std::nullopt;
    }
    auto body = makeBody();
    if (!body || !Cipher(_keys->receiveDatagrams)
                      .open(number, bytes, kHeaderSize, bytes + kHeaderSize, size - kHeaderSize,
                            body->data())) {
        return std::nullopt;
    }
    _arrived.add(number);
    body->setUsedSize(static_cast<unsigned int>(size - kOverhead));
    if (_followsPeer && number + 1 == _arrived.next()) {
        _peer = _from;
    }
    return Packet{kind, number, std::move(body)};
}

}  // namespace mirror
