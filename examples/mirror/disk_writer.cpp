#include "disk_writer.h"

#include <algorithm>
#include <utility>

using NIVUR::makeRunnable;

namespace mirror {

namespace {

constexpr unsigned int kRingSize = 1024 * 1024;
constexpr unsigned int kPieceSize = 128 * 1024;

}  // namespace

DiskWriter::DiskWriter(const std::string& path, NIVUR::RunLoop& owner, Reply onWritten)
    : _file(path),
      _ring(kRingSize, "network to disk"),
      _owner(owner),
      _onWritten(std::move(onWritten)) {}

void DiskWriter::open(Reply replyTo) {
    if (_loop.start()) {
        ask([this] { return _file.open(); }, std::move(replyTo));
    } else {
        replyTo("cannot start a thread");
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

/// Has an operation done on the disk's loop, and its result told on the owner's.
void DiskWriter::ask(std::function<std::string()> operation, Reply replyTo) {
    const auto perform = [this, operation = std::move(operation), replyTo = std::move(replyTo)] {
        const std::string error = operation();
        const auto answer = [this, error, replyTo, written = _file.written()] {
            _written = written;
            replyTo(error);
        };
        _owner.postItem(makeRunnable(answer), false, false);
    };
    _loop.postItem(makeRunnable(perform), false, false);
}

/// Has the disk write a piece, unless it is about to or less than that is queued.
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

/// On the disk's loop. Nothing is left of a piece that was requested after commit().
std::string DiskWriter::writePiece() {
    char piece[kPieceSize];
    const unsigned int size = std::min(_ring.getUnreadSize(), kPieceSize);
    _ring.read(piece, size);
    return size == 0 ? "" : _file.append(piece, size);
}

}  // namespace mirror
