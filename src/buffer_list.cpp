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
    _home->list = nullptr;
    _home->free.close([this](unsigned int index) { _buffers[index].reset(); });
    for (std::unique_ptr<Buffer>& buffer : _buffers) {
        (void)buffer.release();  // those left are handed out: their holders delete them
    }
}

SharedPtr<Buffer> BufferList::getBuffer(unsigned int /*size*/) {
    const unsigned int index = _home->free.take();
    if (index == FreeSet::kNone) {
        return SharedPtr<Buffer>();
    }
    Buffer* const buffer = _buffers[index].get();
    buffer->_state = BUFFER_STATE_IN_USE;
    return SharedPtr<Buffer>(buffer->_count);
}

void BufferList::returnFreeBuffer(Buffer* buffer) {
    if (buffer->_home == _home) {
        buffer->goHome();
    } else {
        buffer->reset();  // a caller constructed it with this list as its owner
    }
}

void BufferList::setGuardCheckEnabled(bool enabled) {
    _home->checksGuards = enabled;
}

unsigned int BufferList::bufferCount() const {
    return static_cast<unsigned int>(_buffers.size());
}

unsigned int BufferList::freeCount() const {
    return _home->free.size();
}

}  // namespace NIVUR
