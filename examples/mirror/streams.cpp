#include "streams.h"

#include <fcntl.h>
#include <nivur/system_util.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

using NIVUR::makeRunnable;
using NIVUR::RunLoop;
using NIVUR::SystemUtil;

namespace mirror {

namespace {

constexpr size_t kMaxWaiting = 2048;

bool canBeWatched(int descriptor) {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 &&
           (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode) || ::isatty(descriptor) == 1);
}

}  // namespace

NonBlocking::NonBlocking(int descriptor)
    : _descriptor(descriptor), _flags(::fcntl(descriptor, F_GETFL)) {
    ::fcntl(_descriptor, F_SETFL, _flags | O_NONBLOCK);
}

NonBlocking::~NonBlocking() {
    ::fcntl(_descriptor, F_SETFL, _flags);
}

InputStream::InputStream(RunLoop& loop, int descriptor, std::function<void()> onReadable)
    : _loop(loop),
      _descriptor(descriptor),
      _onReadable(std::move(onReadable)),
      _isFile(!canBeWatched(descriptor)),
      _nonBlocking(descriptor) {}

InputStream::~InputStream() {
    stop();
}

void InputStream::start() {
    if (!_isFile && _watch == 0) {
        _watch = _loop.addWatch(_descriptor, RunLoop::READABLE,
                                makeRunnable([this] { _onReadable(); }, this));
    }
}

void InputStream::stop() {
    _loop.removeWatch(std::exchange(_watch, 0));
}

InputStream::Status InputStream::read(char* bytes, size_t& size) const {
    ssize_t count = 0;
    do {
        count = ::read(_descriptor, bytes, size);
    } while (count == -1 && errno == EINTR);
    size = count > 0 ? static_cast<size_t>(count) : 0;
    if (count == -1) {
        return errno == EAGAIN ? Status::NOTHING_NOW : Status::FAILED;
    }
    return count > 0 ? Status::BYTES : Status::END;
}

OutputStream::OutputStream(RunLoop& loop, int descriptor)
    : _loop(loop), _descriptor(descriptor), _nonBlocking(descriptor) {}

OutputStream::~OutputStream() {
    _loop.removeWatch(_watch);
}

void OutputStream::write(Body chunk, size_t skip) {
    if (_waiting.size() >= kMaxWaiting || _error != 0) {
        ++_dropped;
        return;
    }
    _takenMs = _waiting.empty() ? SystemUtil::getCPUTime() : _takenMs;
    _waiting.push_back({std::move(chunk), skip});
    if (_watch == 0) {
        flush();
    }
}

bool OutputStream::isStuckFor(uint64_t ms) const {
    return !isEmpty() && SystemUtil::getCPUTime() - _takenMs > ms;
}

void OutputStream::flush() {
    while (!_waiting.empty() && writeFirst()) {
    }
    if (_waiting.empty()) {
        _loop.removeWatch(std::exchange(_watch, 0));
    } else if (_watch == 0) {
        _watch =
            _loop.addWatch(_descriptor, RunLoop::WRITABLE, makeRunnable([this] { flush(); }, this));
    }
}

/// Writes the first chunk or a part of it. Returns whether to try again at once.
bool OutputStream::writeFirst() {
    Chunk& chunk = _waiting.front();
    const size_t rest = chunk.body->usedSize() - chunk.written;
    const ssize_t count = ::write(_descriptor, chunk.body->data() + chunk.written, rest);
    if (count == -1) {
        if (errno == EAGAIN) {
            return false;
        }
        if (errno != EINTR) {
            _error = errno;
            _waiting.clear();
        }
        return true;
    }
    chunk.written += static_cast<size_t>(count);
    if (chunk.written == chunk.body->usedSize()) {
        _waiting.pop_front();
        _takenMs = SystemUtil::getCPUTime();
    }
    return true;
}

}  // namespace mirror
