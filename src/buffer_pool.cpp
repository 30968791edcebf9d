#include "buffer_pool.h"

#include <algorithm>
#include <utility>

namespace NIVUR {

bool sortBufferList(BufferList* a, BufferList* b) {
    return a->bufferSize() < b->bufferSize();
}

BufferPool::BufferPool(const BufferPool_Config* config, std::string name) : _name(std::move(name)) {
    if (config == nullptr) {
        return;
    }
    for (const BufferList_Config& listConfig : config->listConfigs) {
        _lists.push_back(std::make_unique<BufferList>(listConfig));
    }
    std::sort(_lists.begin(), _lists.end(),
              [](const auto& a, const auto& b) { return sortBufferList(a.get(), b.get()); });
}

BufferPool::~BufferPool() = default;

SharedPtr<Buffer> BufferPool::getPoolBuffer(unsigned int size, BaseBufferParam* param) {
    std::unique_ptr<BaseBufferParam> offered(param);
    for (const std::unique_ptr<BufferList>& list : _lists) {
        if (size <= list->bufferSize()) {
            if (SharedPtr<Buffer> buffer = list->getBuffer(size)) {
                (void)offered.release();
                return buffer;
            }
        }
    }
    _fallbacks.fetch_add(1, std::memory_order_relaxed);
    return getBuffer(size, offered.release());
}

void BufferPool::setGuardCheckEnabled(bool enabled) {
    for (const std::unique_ptr<BufferList>& list : _lists) {
        list->setGuardCheckEnabled(enabled);
    }
}

SharedPtr<Buffer> BufferPool::getBuffer(unsigned int size, BaseBufferParam* param) {
    std::unique_ptr<BaseBufferParam> offered(param);
    auto buffer = std::make_unique<Buffer>(size, param, nullptr);
    (void)offered.release();
    if (buffer->state() == BUFFER_STATE_INVALID) {
        return SharedPtr<Buffer>();
    }
    return SharedPtr<Buffer>(buffer.release());
}

}  // namespace NIVUR
