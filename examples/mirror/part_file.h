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
/// itself if that is a device. A PATH.part that is there already is not touched, since it may be
/// the source or that of another transfer, unless the owner wants to resume it. One thread at a
/// time; operations give an error message, or "".
class PartFile : public NIVUR::NoCopyable {
  public:
    /// One that `resumes` goes on with a PATH.part that is there, and leaves its own there when it
    /// is destroyed before it is complete.
    PartFile(std::string path, bool resumes) : _path(std::move(path)), _resumes(resumes) {}

    /// Removes what is not complete.
    ~PartFile();

    std::string open();

    /// Reads a piece of what the file holds already. Call it until isRead(), before anything is
    /// written.
    std::string read();
    bool isRead() const { return _isRead; }

    /// Appends bytes. After an error it does nothing and gives that error again.
    std::string append(const char* bytes, unsigned int size);

    /// Compares the checksum of all bytes with this one and gives the file its name.
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
    bool openAs(const std::string& path, const char* mode);
    std::string fail(int reason);

    const std::string _path;
    bool _resumes;
    std::string _partPath;  // of what is not complete yet, or ""
    std::unique_ptr<std::FILE, Close> _file;
    Checksum _checksum;
    uint64_t _written = 0;
    bool _isRead = true;
    std::string _error;
};

}  // namespace mirror

#endif
