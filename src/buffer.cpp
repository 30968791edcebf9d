#include "buffer.h"

#include <string.h>

#include <limits>
#include <new>
#include <utility>

#include "private/assertion.h"
#include "private/buffer_home.h"

namespace NIVUR {

// Constant-initialised and trivially destructible, as the default disposer is: static objects of an
// application may hold buffers, whenever they are constructed and destroyed.
Buffer::SharedBufferDisposer Buffer::_disposer;
template class SharedCount<Buffer>;
template class SharedPtr<Buffer>;

void Buffer::SharedBufferDisposer::dispose(Buffer* buffer) {
    if (buffer != nullptr) {
        buffer->release();
    }
}

Buffer::Buffer(unsigned int size, BaseBufferParam* param, BufferOwner* owner)
    : _owner(owner), _param(param) {
    if (size <= std::numeric_limits<unsigned int>::max() - sizeof(_checkByte)) {
        _data = new (std::nothrow) char[size + sizeof(_checkByte)];
    }
    if (_data != nullptr) {
        _capacity = size;
        _state = owner == nullptr ? BUFFER_STATE_IN_USE : BUFFER_STATE_FREE;
        placeGuard();
    }
}

Buffer::~Buffer() {
    checkBufferOverflow();
    // From here on the destructors of param and values see an invalid buffer.
    _owner = nullptr;
    _home.reset();
    _state = BUFFER_STATE_INVALID;
    _capacity = 0;
    _usedSize = 0;
    delete[] std::exchange(_data, nullptr);
    delete std::exchange(_param, nullptr);
}

void Buffer::reset() {
    if (_data != nullptr) {
        _state = BUFFER_STATE_FREE;
        _usedSize = 0;
        placeGuard();
    }
}

void Buffer::release() {
    if (_home != nullptr) {
        if (goHome()) {
            return;
        }
    } else if (_owner != nullptr) {
        _owner->returnFreeBuffer(this);
        return;
    }
    delete this;
}

bool Buffer::goHome() {
    if (_home->checksGuards.load(std::memory_order_relaxed)) {
        checkBufferOverflow();
    }
    const unsigned int usedSize = _usedSize;
    char guard[sizeof(_checkByte)];
    memcpy(guard, _data + usedSize, sizeof(guard));
    reset();
    if (_home->free.giveBack(_index)) {
        return true;  // another thread may already use the buffer, or have deleted it
    }
    _usedSize = usedSize;
    memcpy(_data + usedSize, guard, sizeof(guard));  // restored for the check in the destructor
    return false;
}

void Buffer::checkBufferOverflow() {
    if (_data != nullptr) {
        NIVUR_ASSERT(memcmp(_data + _usedSize, &_checkByte, sizeof(_checkByte)) == 0);
    }
}

bool Buffer::setUsedSize(unsigned int size) {
    if (_data == nullptr || size > _capacity) {
        return false;
    }
    _usedSize = size;
    placeGuard();
    return true;
}

BufferOwner* Buffer::owner() const {
    return _home != nullptr ? _home->list.load() : _owner;
}

void Buffer::placeGuard() {
    memcpy(_data + _usedSize, &_checkByte, sizeof(_checkByte));  // may be unaligned
}

}  // namespace NIVUR
