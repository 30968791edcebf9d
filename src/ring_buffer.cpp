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

unsigned int RingBuffer::write(const char* data, unsigned int length) {
    AutoLock lock(_mutex);
    const unsigned int unread = getUnreadSize();
    if (length > _size - unread) {
        return RING_BUFFER_NOT_ENOUGH_SPACE;
    }
    const unsigned int writePos = advanced(_readPos, unread);
    const unsigned int head = std::min(length, _size - writePos);
    std::copy_n(data, head, _buffer.get() + writePos);
    std::copy_n(data + head, length - head, _buffer.get());
    _unreadSize.store(unread + length, std::memory_order_relaxed);
    return RING_BUFFER_OK;
}

unsigned int RingBuffer::read(char* data, unsigned int length) {
    AutoLock lock(_mutex);
    const unsigned int unread = getUnreadSize();
    if (length > unread) {
        return RING_BUFFER_NOT_ENOUGH_DATA;
    }
    const unsigned int head = std::min(length, _size - _readPos);
    std::copy_n(_buffer.get() + _readPos, head, data);
    std::copy_n(_buffer.get(), length - head, data + head);
    _readPos = advanced(_readPos, length);
    _unreadSize.store(unread - length, std::memory_order_relaxed);
    return RING_BUFFER_OK;
}

void RingBuffer::reset() {
    AutoLock lock(_mutex);
    std::fill_n(_buffer.get(), _size, '\0');
    _readPos = 0;
    _unreadSize.store(0, std::memory_order_relaxed);
}

unsigned int RingBuffer::advanced(unsigned int position, unsigned int length) const {
    const unsigned int tail = _size - position;
    return length < tail ? position + length : length - tail;
}

}  // namespace NIVUR
