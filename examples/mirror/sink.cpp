#include "sink.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "agreement.h"
#include "progress.h"

using NIVUR::makeRunnable;

namespace mirror {

Sink::Sink(std::string path, NIVUR::EventCenter& events)
    : _path(std::move(path)), _events(events) {}

Sink::~Sink() {
    _loop.stop();
}

std::string Sink::accept(const std::string& offer) {
    const auto wanted = Offer::fromJson(offer);
    if (!wanted || wanted->frameSize > kFrameSize) {
        return "the offer cannot be understood";
    }
    _file.open(_path, std::ios::binary | std::ios::trunc);
    if (!_file) {
        return "cannot write " + _path + ": " + std::strerror(errno);
    }
    return _loop.start() ? "" : "cannot start a thread";
}

void Sink::post(Frame frame) {
    ++_backlog;
    _loop.postItem(makeRunnable([this, frame = std::move(frame)] { write(frame); }), false, false);
}

void Sink::write(const Frame& frame) {
    const unsigned int size = frame.bytes->usedSize();
    _file.seekp(static_cast<std::streamoff>(frame.offset));
    _file.write(frame.bytes->data(), size);
    _checksum.add(frame.bytes->data(), size);
    _written += size;
    --_backlog;
    BytesDone::send(_events, "frame", size);
}

std::string Sink::finish() {
    std::string result;
    _loop.postItem(makeRunnable([&] { result = total(); }), false, true);
    return result;
}

std::string Sink::total() {
    _file.close();
    return _file ? Result{_written, _checksum.text()}.toJson() : "";
}

}  // namespace mirror
