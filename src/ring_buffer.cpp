#include "ring_buffer.h"

#include <algorithm>
#include <new>
#include <utility>

namespace NIVUR {

RingBuffer::RingBuffer(unsigned int size, std::string name)
    : _name(std::move(name)),
      _buffer(new (std::nothrow) char[size]()),
      _size(_buffer != nullptr ? size : 0) {}

RingBuffer::~RingBuffer() = default;

/// Returns whether `side` may copy `length` bytes. Its total may exceed the other side's by
/// `ahead`.
inline bool RingBuffer::mayPass(Side& side, const Side& other, unsigned int ahead,
                                unsigned int length) {
    const unsigned int total = side.total.load(std::memory_order_relaxed);
    if (length > side.limit - total) {
        side.limit = other.total.load(std::memory_order_acquire) + ahead;
    }
    return length <= side.limit - total;
}

/// Hands `length` copied bytes to the other side.
inline void RingBuffer::pass(Side& side, unsigned int length) {
    const unsigned int tail = _size - side.position;
    side.position = length < tail ? side.position + length : length - tail;
    side.total.store(side.total.load(std::memory_order_relaxed) + length,
                     std::memory_order_release);
}

unsigned int RingBuffer::write(const char* data, unsigned int length) {
    AutoLock lock(_writer.mutex);
    if (!mayPass(_writer, _reader, _size, length)) {
        return RING_BUFFER_NOT_ENOUGH_SPACE;
    }
    const unsigned int head = std::min(length, _size - _writer.position);
    std::copy_n(data, head, _buffer.get() + _writer.position);
    std::copy_n(data + head, length - head, _buffer.get());
    pass(_writer, length);
    return RING_BUFFER_OK;
}

unsigned int RingBuffer::read(char* data, unsigned int length) {
    AutoLock lock(_reader.mutex);
    if (!mayPass(_reader, _writer, 0, length)) {
        return RING_BUFFER_NOT_ENOUGH_DATA;
    }
    const unsigned int head = std::min(length, _size - _reader.position);
    std::copy_n(_buffer.get() + _reader.position, head, data);
    std::copy_n(_buffer.get(), length - head, data + head);
    pass(_reader, length);
    return RING_BUFFER_OK;
}

void RingBuffer::reset() {
    AutoLock writing(_writer.mutex);
    AutoLock reading(_reader.mutex);
    std::fill_n(_buffer.get(), _size, '\0');
    _writer.position = _reader.position = 0;
    const unsigned int total = _writer.total.load(std::memory_order_relaxed);
    _reader.limit = total;  // the stored bytes count as read
    _reader.total.store(total, std::memory_order_release);
}

unsigned int RingBuffer::getUnreadSize() const {
    for (;;) {
        const unsigned int read = _reader.total.load(std::memory_order_acquire);
        const unsigned int written = _writer.total.load(std::memory_order_acquire);
        if (_reader.total.load(std::memory_order_relaxed) == read) {
            return written - read;  // both totals were valid at one moment
        }
    }
}

}  // namespace NIVUR
