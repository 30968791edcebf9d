#ifndef MIRROR_WIRE_H
#define MIRROR_WIRE_H

#include <cstddef>
#include <cstdint>

namespace mirror {

/// Writes numbers in network byte order into a buffer of fixed size. A number that does not fit is
/// not written, and fits() is false from then on.
class Writer {
  public:
    Writer(char* bytes, size_t size) : _begin(bytes), _at(bytes), _end(bytes + size) {}

    /// Writes the low `bytes` bytes of a number.
    void number(uint64_t value, unsigned int bytes) {
        if (take(bytes)) {
            for (unsigned int i = 0; i < bytes; ++i) {
                _at[i] = static_cast<char>(value >> (8 * (bytes - 1 - i)));
            }
            _at += bytes;
        }
    }

    /// Writes a variable-length number: seven bits per byte, the lowest first.
    void compact(uint64_t value) {
        for (; value > 0x7f; value >>= 7) {
            number(value | 0x80, 1);
        }
        number(value, 1);
    }

    bool fits() const { return _fits; }
    size_t size() const { return static_cast<size_t>(_at - _begin); }

  private:
    bool take(size_t bytes) {
        _fits = _fits && static_cast<size_t>(_end - _at) >= bytes;
        return _fits;
    }

    char* const _begin;
    char* _at;
    char* const _end;
    bool _fits = true;
};

/// Reads what a Writer has written. Beyond the end it returns zeros, and isValid() is false.
class Reader {
  public:
    Reader(const char* bytes, size_t size) : _at(bytes), _end(bytes + size) {}

    uint64_t number(unsigned int bytes) {
        if (static_cast<size_t>(_end - _at) < bytes) {
            _valid = false;
            _at = _end;
            return 0;
        }
        uint64_t value = 0;
        for (const char* const stop = _at + bytes; _at != stop; ++_at) {
            value = value << 8 | static_cast<unsigned char>(*_at);
        }
        return value;
    }

    uint64_t compact() {
        uint64_t value = 0;
        for (unsigned int shift = 0; shift < 64; shift += 7) {
            const uint64_t byte = number(1);
            value |= (byte & 0x7f) << shift;
            if ((byte & 0x80) == 0) {
                return value;
            }
        }
        _valid = false;
        return 0;
    }

    bool isValid() const { return _valid; }
    bool atEnd() const { return _at == _end; }

  private:
    const char* _at;
    const char* const _end;
    bool _valid = true;
};

/// The number nearest to `expected` whose low `bits` bits are `low`.
inline uint64_t nearest(uint64_t expected, uint64_t low, unsigned int bits) {
    const uint64_t size = uint64_t{1} << bits;
    const uint64_t distance = (low - expected) & (size - 1);
    const bool isBehind = distance >= size / 2 && expected >= size - distance;
    return expected + distance - (isBehind ? size : 0);
}

}  // namespace mirror

#endif
