#include "live_source.h"

#include <nivur/system_util.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "texts.h"

namespace mirror {

namespace {

constexpr int kChunksPerPass = 64;
constexpr uint64_t kFirstRate = 2'000'000;

}  // namespace

void LiveSource::describe(NIVUR::Dictionary& offer) const {
    offer.setString("mode", "live");
    setNumber(offer, "latencyUs", _latencyUs);
}

/// A stream cannot wait until the bandwidth is known: it starts at 16 Mbit/s.
uint64_t LiveSource::firstRate() const {
    return kFirstRate;
}

void LiveSource::start(Transmitter& transmitter, uint64_t window) {
    _transmitter = &transmitter;
    _window = window;
    _input.emplace(_loop, STDIN_FILENO, [this] { readAll(); });
    _input->start();
}

/// A file on the standard input is always readable: it is read as fast as it can be sent.
void LiveSource::fill() {
    if (_input && _input->isFile() && !_finished) {
        addChunk();
    }
}

void LiveSource::readAll() {
    for (int i = 0; i < kChunksPerPass && addChunk(); ++i) {
    }
    if (_transmitter->waiting() >= _window) {
        _input->stop();
    }
    _transmitter->pump();
}

void LiveSource::onConfirmed() {
    if (!_finished && _transmitter->waiting() < _window) {
        _input->start();
    }
}

/// Returns whether there may be more to read.
bool LiveSource::addChunk() {
    auto body = _transmitter->waiting() < _window ? _datagrams.makeBody() : DatagramPath::Body();
    if (!body) {
        return false;
    }
    size_t size = kMaxChunk;
    const auto status = _input->read(body->data() + kDataHeaderSize, size);
    if (status == InputStream::Status::BYTES) {
        body->setUsedSize(static_cast<unsigned int>(kDataHeaderSize + size));
        _transmitter->add(std::move(body), NIVUR::SystemUtil::getCPUTimeInMicroseconds());
    } else if (status == InputStream::Status::END) {
        finish();
    } else if (status == InputStream::Status::FAILED) {
        const int reason = errno;
        _input->stop();
        _owner.onFailed("cannot read the stream: " + std::string(std::strerror(reason)));
    }
    return status == InputStream::Status::BYTES;
}

void LiveSource::finish() {
    _finished = true;
    _input->stop();
    NIVUR::Dictionary text = makeText("finished");
    setNumber(text, "chunks", _transmitter->added());
    _owner.onFinished(text);
}

}  // namespace mirror
