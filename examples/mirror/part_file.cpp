#include "part_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace fs = std::filesystem;

namespace mirror {

PartFile::~PartFile() {
    if (!_partPath.empty()) {
        std::remove(_partPath.c_str());
    }
}

std::string PartFile::open() {
    std::error_code error;
    const fs::file_type type = fs::status(_path, error).type();
    const bool isDevice = type == fs::file_type::character || type == fs::file_type::block;
    if (type == fs::file_type::regular || type == fs::file_type::not_found || isDevice) {
        const std::string path = isDevice ? _path : _path + ".part";
        _file.reset(std::fopen(path.c_str(), isDevice ? "wb" : "wbx"));
        if (_file == nullptr && errno == EEXIST) {
            return path +
                   " is in the way, of a transfer that is under way or was cut short: remove it";
        }
        if (_file == nullptr) {
            return "cannot write " + path + ": " + std::strerror(errno);
        }
        _partPath = isDevice ? "" : path;
    } else {
        return "cannot write " + _path + ": " + (error ? error.message() : "not a file");
    }
    std::setvbuf(_file.get(), nullptr, _IONBF, 0);  // the pieces are large
    return "";
}

std::string PartFile::append(const char* bytes, unsigned int size) {
    if (!_error.empty()) {
        return _error;
    }
    if (std::fwrite(bytes, 1, size, _file.get()) != size) {
        return fail(errno);
    }
    _checksum.add(bytes, size);
    _written += size;
    return "";
}

std::string PartFile::finish(const std::string& checksum) {
    if (!_error.empty()) {
        return _error;
    }
    if (_checksum.text() != checksum) {
        return "the copy differs from the source";
    }
    const bool isStored = _partPath.empty() || ::fsync(::fileno(_file.get())) == 0;
    if (!isStored || std::fclose(_file.release()) != 0 ||
        (!_partPath.empty() && std::rename(_partPath.c_str(), _path.c_str()) != 0)) {
        return fail(errno);
    }
    _partPath.clear();
    return "";
}

std::string PartFile::fail(int reason) {
    _error = "cannot write " + _path + ": " + std::strerror(reason);
    return _error;
}

}  // namespace mirror
