#ifndef MIRROR_CHECKSUM_H
#define MIRROR_CHECKSUM_H

#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace mirror {

/// A running 64-bit FNV-1a hash (Fowler, Noll, Vo), enough to detect accidental differences of two
/// files.
class Checksum {
  public:
    void add(const char* data, size_t size) {
        for (size_t i = 0; i < size; ++i) {
            _hash = (_hash ^ static_cast<unsigned char>(data[i])) * 0x100000001b3U;
        }
    }

    std::string text() const {
        char hex[17];
        std::snprintf(hex, sizeof(hex), "%016" PRIx64, _hash);
        return hex;
    }

  private:
    uint64_t _hash = 0xcbf29ce484222325U;
};

}  // namespace mirror

#endif
