#include "file_sink.h"

#include "texts.h"

using NIVUR::Dictionary;

namespace mirror {

namespace {

constexpr uint64_t kWriteMs = 8000;
constexpr uint64_t kCommitMs = 600'000;  // the kernel may have gigabytes left to write

}  // namespace

FileSink::FileSink(const std::string& path, bool resumes, NIVUR::RunLoop& loop,
                   NIVUR::EventCenter& events, Owner& owner)
    : _events(events),
      _owner(owner),
      _disk(path, resumes, loop, [this](const std::string& error) { onWritten(error); }) {}

bool FileSink::take(const Dictionary& offer) {
    const auto size = getNumber(offer, "size");
    const auto chunkSize = getNumber(offer, "chunkSize");
    if (offer.getString("mode") != "file" || !size || !chunkSize || *chunkSize > kMaxChunk) {
        return false;
    }
    _layout = {*size, static_cast<unsigned int>(*chunkSize)};
    if (!_layout.isValid()) {
        return false;
    }
    _size = *size;
    _name = printable(offer.getString("name"));
    _disk.open([this](const std::string& error) { onOpened(error); });
    return true;
}

void FileSink::onOpened(const std::string& error) {
    _before = _disk.written();
    if (!error.empty()) {
        _owner.onFailed(error);
    } else if (_before > _size) {
        _owner.onFailed("an earlier transfer has left more than " + _name + " has: remove it");
    } else {
        _layout.fileSize = _size - _before;
        _owner.onReady();
    }
}

void FileSink::describe(Dictionary& accept) const {
    if (_before > 0) {
        setNumber(accept, "from", _before);
        accept.setString("checksum", _disk.checksum());
    }
}

void FileSink::start(ChunkWindow& chunks) {
    _chunks = &chunks;
}

void FileSink::onWritten(const std::string& error) {
    if (!error.empty()) {
        _owner.onFailed(error);
    } else {
        Standing(_disk.written(), _size).send(_events, "moved");
        onChunks();
    }
}

/// Passes the chunks that are in order to the disk's loop while its ring has room. The others stay
/// in the window and are not confirmed, which slows down the sender.
void FileSink::onChunks() {
    if (_chunks == nullptr || _committing) {
        return;
    }
    while (const NIVUR::Buffer* const chunk = _chunks->first()) {
        const unsigned int size = chunk->usedSize() - kDataHeaderSize;
        if (size != _layout.sizeOf(_chunks->base())) {
            _owner.onFailed("the sender sent a piece of the wrong size");
            return;
        }
        if (!_disk.write(chunk->data() + kDataHeaderSize, size)) {
            break;  // onWritten() continues
        }
        _chunks->pop();
        _owner.onMoved();
    }
    if (!_checksum.empty() && _chunks->base() == _layout.chunks()) {
        _committing = true;
        _owner.onArrived();
        _disk.commit(_checksum, [this](const std::string& error) { onCommitted(error); });
    }
}

void FileSink::onCommitted(const std::string& error) {
    if (error.empty()) {
        _owner.onComplete("");
    } else {
        _owner.onFailed(error);
    }
}

bool FileSink::finish(const Dictionary& text) {
    _checksum = text.getString("checksum");
    const bool valid = !_checksum.empty() && getNumber(text, "size") == _size;
    if (valid) {
        onChunks();
    }
    return valid;
}

void FileSink::tick() {
    _disk.flush();
}

std::string FileSink::obstacle() const {
    const uint64_t limitMs = _committing ? kCommitMs : kWriteMs;
    return _disk.isBusyFor(limitMs)
               ? "the destination has taken nothing for " + std::to_string(limitMs / 1000) + " s"
               : "";
}

/// A sender first compares the incomplete file of an earlier transfer, which may take long.
bool FileSink::expectsProgress() const {
    return _chunks != nullptr && (_before == 0 || _chunks->end() > 0);
}

std::vector<Statistics::Figure> FileSink::figures() {
    return {{"written", "kbit/s", Statistics::PER_SECOND, _disk.written() / 125}};
}

}  // namespace mirror
