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
/// itself if that is a device. A PATH.part that is there already is never touched: it may be
/// another transfer's, or the source. One thread at a time; operations give an error message, or
/// "".
class PartFile : public NIVUR::NoCopyable {
  public:
    explicit PartFile(std::string path) : _path(std::move(path)) {}

    /// Removes what is not complete.
    ~PartFile();

    std::string open();

    /// Appends bytes. After an error it does nothing and gives that error again.
    std::string append(const char* bytes, unsigned int size);

    /// Compares the checksum of all bytes with this one and gives the file its name.
    std::string finish(const std::string& checksum);

    /// How many bytes the file has.
    uint64_t written() const { return _written; }

  private:
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    std::string fail(int reason);

    const std::string _path;
    std::string _partPath;  // of what is not complete yet, or ""
    std::unique_ptr<std::FILE, Close> _file;
    Checksum _checksum;
    uint64_t _written = 0;
    std::string _error;
};

}  // namespace mirror

#endif
