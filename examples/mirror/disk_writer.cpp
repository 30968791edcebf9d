#include "disk_writer.h"

#include <nivur/semaphore.h>
#include <nivur/system_util.h>

#include <algorithm>
#include <memory>
#include <utility>

using NIVUR::makeRunnable;
using NIVUR::SystemUtil;

namespace mirror {

namespace {

constexpr unsigned int kRingSize = 1024 * 1024;
constexpr unsigned int kPieceSize = 128 * 1024;
constexpr unsigned int kStopMs = 2000;

}  // namespace

DiskWriter::DiskWriter(const std::string& path, bool resumes, NIVUR::RunLoop& owner,
                       Reply onWritten)
    : _file(path, resumes),
      _ring(kRingSize, "network to disk"),
      _owner(owner),
      _onWritten(std::move(onWritten)) {}

void DiskWriter::open(const Reply& replyTo) {
    _started = _loop.start();
    if (_started) {
        ask([this] { return _file.open(); },
            [this, replyTo](const std::string& error) { readOn(error, replyTo); });
    } else {
        _owner.postItem(makeRunnable([replyTo] { replyTo("cannot start a thread"); }), false,
                        false);
    }
}

/// Reads in pieces: each reply shows that the disk is not stuck.
void DiskWriter::readOn(const std::string& error, const Reply& replyTo) {
    if (!error.empty() || _file.isRead()) {
        replyTo(error);
    } else {
        ask([this] { return _file.read(); },
            [this, replyTo](const std::string& next) { readOn(next, replyTo); });
    }
}

bool DiskWriter::write(const char* bytes, unsigned int size) {
    if (_ring.write(bytes, size) != NIVUR::RING_BUFFER_OK) {
        return false;
    }
    requestPiece(kPieceSize);
    return true;
}

void DiskWriter::flush() {
    requestPiece(1);
}

void DiskWriter::commit(const std::string& checksum, Reply replyTo) {
    ask(
        [this, checksum] {
            while (_ring.getUnreadSize() > 0) {
                writePiece();
            }
            return _file.finish(checksum);
        },
        std::move(replyTo));
}

/// Runs `operation` on the disk's loop, and `replyTo` with its result on the owner's.
void DiskWriter::ask(std::function<std::string()> operation, Reply replyTo) {
    const auto perform = [this, operation = std::move(operation), replyTo = std::move(replyTo)] {
        const std::string error = operation();
        const auto answer = [this, error, replyTo, written = _file.written()] {
            _written = written;
            --_asked;
            _busyMs = SystemUtil::getCPUTime();
            replyTo(error);
        };
        _owner.postItem(makeRunnable(answer), false, false);
    };
    _busyMs = _asked++ == 0 ? SystemUtil::getCPUTime() : _busyMs;
    _loop.postItem(makeRunnable(perform), false, false);
}

bool DiskWriter::isBusyFor(uint64_t ms) const {
    return _asked > 0 && SystemUtil::getCPUTime() - _busyMs > ms;
}

/// First waits for the disk with a time limit, since RunLoop::stop() has none.
bool DiskWriter::stop() {
    if (!_started) {
        return true;
    }
    const auto free = std::make_shared<NIVUR::Semaphore>();
    _loop.postItem(makeRunnable([free] { free->notify(); }), false, false);
    if (free->wait(kStopMs) != 0) {
        return false;
    }
    _started = false;
    _loop.stop();
    return true;
}

/// Requests the writing of a piece, unless one is requested already or fewer bytes are queued.
void DiskWriter::requestPiece(unsigned int minSize) {
    if (!_requested && _ring.getUnreadSize() >= minSize) {
        _requested = true;
        ask([this] { return writePiece(); }, [this](const std::string& error) { onPiece(error); });
    }
}

void DiskWriter::onPiece(const std::string& error) {
    _requested = false;
    requestPiece(kPieceSize);
    _onWritten(error);
}

/// Runs on the disk's loop. The ring is empty if a commit() has run meanwhile.
std::string DiskWriter::writePiece() {
    char piece[kPieceSize];
    const unsigned int size = std::min(_ring.getUnreadSize(), kPieceSize);
    _ring.read(piece, size);
    return size == 0 ? "" : _file.append(piece, size);
}

}  // namespace mirror
