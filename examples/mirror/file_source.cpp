#include "file_source.h"

#include <nivur/system_util.h>

#include <cerrno>
#include <filesystem>
#include <utility>

#include "texts.h"

namespace mirror {

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
    if (!addChunk()) {
        _owner.onFailed(_path + " shrank while it was read");
    } else if (_transmitter->added() == _layout.chunks()) {
        finish();
    }
}

bool FileSource::addChunk() {
    const unsigned int size = _layout.sizeOf(_transmitter->added());
    auto body = _datagrams.makeBody();
    if (!body || !_file.read(body->data() + kDataHeaderSize, size)) {
        return false;
    }
    body->setUsedSize(kDataHeaderSize + size);
    _checksum.add(body->data() + kDataHeaderSize, size);
    _transmitter->add(std::move(body), NIVUR::SystemUtil::getCPUTimeInMicroseconds());
    return true;
}

void FileSource::finish() {
    if (_file.peek() != std::ifstream::traits_type::eof()) {
        _owner.onFailed(_path + " grew while it was read");
        return;
    }
    NIVUR::Dictionary text = makeText("finished");
    setNumber(text, "size", _layout.fileSize);
    text.setString("checksum", _checksum.text());
    _owner.onFinished(text);
}

}  // namespace mirror
