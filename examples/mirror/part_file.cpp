#include "part_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

namespace fs = std::filesystem;

namespace mirror {

namespace {

constexpr size_t kPieceSize = 4UL * 1024 * 1024;
constexpr char kInTheWay[] =
    " is in the way, of a transfer that is under way or was cut short: remove it, or go on with "
    "--resume";

/// Makes the new file name durable. Errors are ignored: the file itself is complete.
void syncFolder(const fs::path& path) {
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor != -1) {
        ::fsync(descriptor);
        ::close(descriptor);
    }
}

}  // namespace

PartFile::~PartFile() {
    if (!_partPath.empty() && !_resumes) {
        std::remove(_partPath.c_str());
    }
}

std::string PartFile::open() {
    std::error_code error;
    const fs::file_type type = fs::status(_path, error).type();
    if (type == fs::file_type::regular || type == fs::file_type::not_found) {
        return openPart();
    }
    if (type != fs::file_type::character && type != fs::file_type::block) {
        return "cannot write " + _path + ": " + (error ? error.message() : "not a file");
    }
    return openAs(_path, "wbe") ? "" : fail(errno);
}

/// Opens without a stdio buffer, since pieces are large.
bool PartFile::openAs(const std::string& path, const char* mode) {
    _file.reset(std::fopen(path.c_str(), mode));
    return _file != nullptr && std::setvbuf(_file.get(), nullptr, _IONBF, 0) == 0;
}

std::string PartFile::openPart() {
    const std::string path = _path + ".part";
    const bool isThere = fs::symlink_status(path).type() == fs::file_type::regular;
    if (!openAs(path, _resumes && isThere ? "r+be" : "wbxe")) {
        return errno == EEXIST ? path + kInTheWay
                               : "cannot write " + path + ": " + std::strerror(errno);
    }
    if (!lock(path)) {
        return path + " is being written by another transfer";
    }
    _partPath = path;
    _isRead = !isThere;
    return "";
}

/// Returns false if another transfer holds the lock, or has renamed or removed the file since it
/// was opened here. A file system without locks is no obstacle.
bool PartFile::lock(const std::string& path) {
    const int descriptor = ::fileno(_file.get());
    const bool isFree = ::flock(descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
    struct stat opened {};
    struct stat named {};
    return isFree && ::fstat(descriptor, &opened) == 0 && ::stat(path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

std::string PartFile::read() {
    std::vector<char> piece(kPieceSize);
    const size_t size = std::fread(piece.data(), 1, piece.size(), _file.get());
    _checksum.add(piece.data(), size);
    _written += size;
    _isRead = size < piece.size();
    const bool isGood = std::ferror(_file.get()) == 0 && std::fseek(_file.get(), 0, SEEK_CUR) == 0;
    return isGood ? "" : fail(errno);
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

/// Keeps the lock until the file is renamed, so that nobody else resumes it. An error of fclose()
/// is therefore reported although the file already has its name.
std::string PartFile::finish(const std::string& checksum) {
    if (!_error.empty()) {
        return _error;
    }
    if (_checksum.text() != checksum) {
        _resumes = false;
        return "the copy differs from the source";
    }
    const bool isDevice = _partPath.empty();
    const bool isStored =
        isDevice || ::fsync(::fileno(_file.get())) == 0 || errno == EINVAL;  // no fsync() there
    if (!isStored || (!isDevice && std::rename(_partPath.c_str(), _path.c_str()) != 0)) {
        return fail(errno);
    }
    if (!isDevice) {
        syncFolder(_path);
    }
    _partPath.clear();
    return std::fclose(_file.release()) == 0 ? "" : fail(errno);
}

std::string PartFile::fail(int reason) {
    _error = "cannot write " + _path + ": " + std::strerror(reason);
    return _error;
}

}  // namespace mirror
