#include "file_source.h"

#include <nivur/system_util.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <utility>
#include <vector>

#include "texts.h"

namespace mirror {

namespace {

constexpr uint64_t kPieceSize = 4UL * 1024 * 1024;

}  // namespace

std::string FileSource::open() {
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

void FileSource::describe(NIVUR::Dictionary& offer) const {
    offer.setString("mode", "file");
    setAnyString(offer, "name", std::filesystem::path(_path).filename());
    setNumber(offer, "size", _layout.fileSize);
    setNumber(offer, "chunkSize", _layout.chunkSize);
}

/// Reads one piece per call, so that the loop is not blocked for long.
bool FileSource::skip(uint64_t from, const std::string& checksum) {
    std::vector<char> piece(static_cast<size_t>(std::min<uint64_t>(from - _skipped, kPieceSize)));
    if (from > _skipped + _layout.fileSize ||
        !_file.read(piece.data(), static_cast<std::streamsize>(piece.size()))) {
        _owner.onFailed(_file.bad() ? "cannot read " + _path
                                    : "the receiver has more of a file than " + _path + " holds");
        return false;
    }
    _checksum.add(piece.data(), piece.size());
    _skipped += piece.size();
    _layout.fileSize -= piece.size();
    if (_skipped == from && _checksum.text() != checksum) {
        _owner.onFailed("what the receiver has is not the beginning of " + _path);
        return false;
    }
    return _skipped == from;
}

void FileSource::start(Transmitter& transmitter, uint64_t window) {
    _transmitter = &transmitter;
    _window = window;
    if (_layout.chunks() == 0) {
        finish();
    }
}

void FileSource::fill() {
    if (_transmitter->added() == _layout.chunks() || _transmitter->waiting() >= _window) {
        return;
    }
    const std::string error = addChunk();
    if (!error.empty()) {
        _owner.onFailed(error);
    } else if (_transmitter->added() == _layout.chunks()) {
        finish();
    }
}

std::string FileSource::addChunk() {
    const unsigned int size = _layout.sizeOf(_transmitter->added());
    auto body = _datagrams.makeBody();
    if (!body) {
        return "no memory for another piece of " + _path;
    }
    if (!_file.read(body->data() + kDataHeaderSize, size)) {
        return _file.bad() ? "cannot read " + _path : _path + " shrank while it was read";
    }
    body->setUsedSize(kDataHeaderSize + size);
    _checksum.add(body->data() + kDataHeaderSize, size);
    _transmitter->add(std::move(body), NIVUR::SystemUtil::getCPUTimeInMicroseconds());
    return "";
}

void FileSource::finish() {
    if (_file.peek() != std::ifstream::traits_type::eof()) {
        _owner.onFailed(_path + " grew while it was read");
        return;
    }
    NIVUR::Dictionary text = makeText("finished");
    setNumber(text, "size", _skipped + _layout.fileSize);
    text.setString("checksum", _checksum.text());
    _owner.onFinished(text);
}

}  // namespace mirror
