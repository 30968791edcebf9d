#include "buffer_list.h"

#include <utility>

#include "private/buffer_home.h"

namespace NIVUR {

BufferList::BufferList(const BufferList_Config& config) : _bufferSize(config.bufferSize) {
    while (_buffers.size() < config.bufferCount) {
        auto buffer = std::make_unique<Buffer>(_bufferSize, nullptr, this);
        if (buffer->state() == BUFFER_STATE_INVALID) {
            break;
        }
        buffer->_index = bufferCount();
        _buffers.push_back(std::move(buffer));
    }
    _home = std::make_shared<BufferHome>(this, bufferCount());
    for (const std::unique_ptr<Buffer>& buffer : _buffers) {
        buffer->_home = _home;
    }
}

BufferList::~BufferList() {
    const FreeSet here = _home->close();
    for (unsigned int index = 0; index < bufferCount(); ++index) {
        if (!here.contains(index)) {
            (void)_buffers[index].release();  // its last holder deletes it
        }
    }
}

SharedPtr<Buffer> BufferList::getBuffer(unsigned int /*size*/) {
    const auto index = _home->take();
    if (!index) {
        return SharedPtr<Buffer>();
    }
    Buffer* const buffer = _buffers[*index].get();
    buffer->_state = BUFFER_STATE_IN_USE;
    return SharedPtr<Buffer>(buffer->_count);
}

void BufferList::returnFreeBuffer(Buffer* buffer) {
    if (buffer->_home == _home) {
        _home->takeBack(*buffer, buffer->_index);
    } else {
        buffer->reset();  // of someone who only named this list as its owner
    }
}

unsigned int BufferList::bufferCount() const {
    return static_cast<unsigned int>(_buffers.size());
}

unsigned int BufferList::freeCount() const {
    return _home->freeCount();
}

}  // namespace NIVUR
