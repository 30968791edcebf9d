#include "source.h"

#include <nivur/date.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

using NIVUR::Buffer;
using NIVUR::makeRunnable;
using NIVUR::SharedPtr;

namespace mirror {

namespace {

constexpr unsigned int kTickMs = 1;
constexpr int kFramesPerTick = 16;
constexpr int kMaxBacklog = 256;
constexpr unsigned int kProgressMs = 200;

const NIVUR::BufferPool_Config& poolConfig() {
    static const NIVUR::BufferPool_Config config{{{kFrameSize, kMaxBacklog}}};
    return config;
}

}  // namespace

Source::Source(std::string path, Sink& sink, Progress& progress)
    : _path(std::move(path)), _sink(sink), _progress(progress), _pool(&poolConfig(), "frames") {}

Source::~Source() {
    _loop.stop();
}

std::string Source::mirror() {
    std::string error = open();
    if (error.empty()) {
        error = _sink.accept(
            Offer{std::filesystem::path(_path).filename(), _size, kFrameSize,
                  NIVUR::Date::now().toString(static_cast<short>(NIVUR::Date::currentTimeZone()))}
                .toJson());
    }
    if (!error.empty()) {
        return error;
    }
    _progress.begin(_size);
    // Before the start, since a task uses the id.
    _loop.addTimer(makeRunnable([this] { _progress.print(); }), kProgressMs, true);
    _timer = _loop.addTimer(makeRunnable([this] { tick(); }), kTickMs, true);
    if (!_loop.start()) {
        return "cannot start a thread";
    }
    _finished.wait();
    _loop.stop();
    return _error;
}

std::string Source::open() {
    std::error_code error;
    _size = std::filesystem::file_size(_path, error);
    if (!error) {
        errno = 0;
        _file.open(_path, std::ios::binary);
        error.assign(_file ? 0 : errno, std::generic_category());
    }
    return error ? "cannot read " + _path + ": " + error.message() : "";
}

/// Reads some frames, as many as the sink has room for.
void Source::tick() {
    for (int i = 0; i < kFramesPerTick && _sink.backlog() < kMaxBacklog; ++i) {
        if (_read == _size) {
            finish(compare());
            return;
        }
        if (!readFrame()) {
            finish(_path + " shrank while it was read: " + std::to_string(_read) + " of " +
                   std::to_string(_size) + " bytes");
            return;
        }
    }
}

bool Source::readFrame() {
    const auto size = static_cast<unsigned int>(std::min<uint64_t>(kFrameSize, _size - _read));
    Frame frame{_pool.getPoolBuffer(size, nullptr), _read};
    if (!frame.bytes || !_file.read(frame.bytes->data(), size)) {
        return false;
    }
    frame.bytes->setUsedSize(size);
    _checksum.add(frame.bytes->data(), size);
    _read += size;
    _sink.post(std::move(frame));
    return true;
}

void Source::finish(const std::string& error) {
    _error = error;
    _loop.stopTimer(_timer);
    _finished.notify();
}

std::string Source::compare() {
    const auto written = Result::fromJson(_sink.finish());
    if (!written) {
        return "writing the destination failed";
    }
    return *written == Result{_size, _checksum.text()} ? "" : "the copy differs from the source";
}

}  // namespace mirror
