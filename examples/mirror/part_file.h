#ifndef MIRROR_PART_FILE_H
#define MIRROR_PART_FILE_H

#include <nivur/no_copyable.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "checksum.h"

namespace mirror {

/// A file that is being written: PATH.part, which is renamed to PATH once it is complete, or PATH
/// itself if that is a device. An existing PATH.part may be the source, or belong to another
/// transfer: it is not touched unless the owner wants to resume it. Not thread-safe. Operations
/// return an error message, or "".
class PartFile : public NIVUR::NoCopyable {
  public:
    /// If `resumes`, open() continues an existing PATH.part, and the destructor keeps an incomplete
    /// one.
    PartFile(std::string path, bool resumes) : _path(std::move(path)), _resumes(resumes) {}

    /// Removes an incomplete PATH.part, unless it `resumes`.
    ~PartFile();

    std::string open();

    /// Reads a piece of the existing contents. Call it until isRead(), before append().
    std::string read();
    bool isRead() const { return _isRead; }

    /// Appends bytes. After an error it only returns that error again.
    std::string append(const char* bytes, unsigned int size);

    /// Compares the checksum of all bytes with this one and renames the file to PATH.
    std::string finish(const std::string& checksum);

    /// How many bytes the file has.
    uint64_t written() const { return _written; }

    /// The checksum of its bytes.
    std::string checksum() const { return _checksum.text(); }

  private:
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    std::string openPart();
    bool lock(const std::string& path);
    bool openAs(const std::string& path, const char* mode);
    std::string fail(int reason);

    const std::string _path;
    bool _resumes;
    std::string _partPath;  // of the incomplete file, or ""
    std::unique_ptr<std::FILE, Close> _file;
    Checksum _checksum;
    uint64_t _written = 0;
    bool _isRead = true;
    std::string _error;
};

}  // namespace mirror

#endif
