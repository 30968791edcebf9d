#include "disk_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

namespace fs = std::filesystem;
using NIVUR::AutoLock;
using NIVUR::makeRunnable;

namespace mirror {

namespace {

constexpr unsigned int kRingSize = 1024 * 1024;
constexpr unsigned int kChunkSize = 64 * 1024;

}  // namespace

DiskWriter::DiskWriter(std::string path)
    : _path(std::move(path)), _ring(kRingSize, "network to disk") {}

DiskWriter::~DiskWriter() {
    _loop.stop();
    if (!_partPath.empty()) {
        std::remove(_partPath.c_str());
    }
}

std::string DiskWriter::open() {
    std::string error = "cannot start a thread";
    if (_loop.start()) {
        _loop.postItem(makeRunnable([&] { error = openFile(); }), false, true);
    }
    return error;
}

std::string DiskWriter::openFile() {
    std::error_code error;
    const fs::file_type type = fs::status(_path, error).type();
    const bool isDevice = type == fs::file_type::character || type == fs::file_type::block;
    if (type == fs::file_type::regular || type == fs::file_type::not_found || isDevice) {
        const std::string path = isDevice ? _path : _path + ".part";
        _file.reset(std::fopen(path.c_str(), isDevice ? "wb" : "wbx"));
        if (_file == nullptr) {
            return "cannot write " + path + ": " + std::strerror(errno);
        }
        _partPath = isDevice ? "" : path;
    } else {
        return "cannot write " + _path + ": " + (error ? error.message() : "not a file");
    }
    std::setvbuf(_file.get(), nullptr, _IONBF, 0);  // the chunks are large
    return "";
}

bool DiskWriter::write(const char* bytes, unsigned int size) {
    if (_ring.write(bytes, size) != NIVUR::RING_BUFFER_OK) {
        return false;
    }
    if (!_drainQueued.exchange(true)) {
        _loop.postItem(makeRunnable([this] { drain(); }), false, false);
    }
    return true;
}

void DiskWriter::drain() {
    _drainQueued = false;  // first: what is written from now on may come too late for this run
    char chunk[kChunkSize];
    while (const unsigned int size = std::min(_ring.getUnreadSize(), kChunkSize)) {
        _ring.read(chunk, size);
        writeChunk(chunk, size);
    }
}

void DiskWriter::writeChunk(const char* bytes, unsigned int size) {
    if (!error().empty()) {
        return;
    }
    if (std::fwrite(bytes, 1, size, _file.get()) != size) {
        fail(errno);
        return;
    }
    _checksum.add(bytes, size);
    _written += size;
}

std::string DiskWriter::commit(const std::string& checksum) {
    std::string error;
    _loop.postItem(makeRunnable([&] { error = finish(checksum); }), false, true);
    return error;
}

std::string DiskWriter::finish(const std::string& checksum) {
    drain();
    if (!error().empty()) {
        return error();
    }
    if (_checksum.text() != checksum) {
        return "the copy differs from the source";
    }
    if (std::fclose(_file.release()) != 0 ||
        (!_partPath.empty() && std::rename(_partPath.c_str(), _path.c_str()) != 0)) {
        fail(errno);
    } else {
        _partPath.clear();
    }
    return error();
}

void DiskWriter::fail(int reason) {
    AutoLock lock(_mutex);
    _error = "cannot write " + _path + ": " + std::strerror(reason);
}

std::string DiskWriter::error() {
    AutoLock lock(_mutex);
    return _error;
}

}  // namespace mirror
