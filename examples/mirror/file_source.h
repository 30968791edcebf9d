#ifndef MIRROR_FILE_SOURCE_H
#define MIRROR_FILE_SOURCE_H

#include <fstream>
#include <functional>
#include <string>

#include "checksum.h"
#include "datagram_path.h"
#include "file_layout.h"
#include "source.h"

namespace mirror {

/// A file, which is read as fast as its chunks can be sent.
class FileSource : public Source {
  public:
    FileSource(std::string path, DatagramPath& datagrams, Owner& owner)
        : _path(std::move(path)), _datagrams(datagrams), _owner(owner) {}

    std::string open() override;
    void describe(NIVUR::Dictionary& offer) const override;
    uint64_t latencyUs() const override { return 0; }
    uint64_t firstRate() const override { return 0; }
    bool skip(uint64_t from, const std::string& checksum) override;
    void start(Transmitter& transmitter, uint64_t window) override;
    void fill() override;
    uint64_t size() const override { return _layout.fileSize; }

  private:
    std::string addChunk();
    void finish();

    const std::string _path;
    DatagramPath& _datagrams;
    Owner& _owner;
    std::ifstream _file;
    uint64_t _skipped = 0;
    FileLayout _layout;  // of the rest
    Checksum _checksum;
    Transmitter* _transmitter = nullptr;
    uint64_t _window = 0;
};

}  // namespace mirror

#endif
