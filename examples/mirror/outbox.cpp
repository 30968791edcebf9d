#include "outbox.h"

#include <algorithm>
#include <utility>

using NIVUR::Buffer;
using NIVUR::SharedPtr;

namespace mirror {

void Outbox::add(SharedPtr<Buffer> body, uint64_t bornUs) {
    Chunk chunk{};
    chunk.body = std::move(body);
    chunk.bornUs = bornUs;
    _chunks.push_back(std::move(chunk));
}

Outbox::Chunk* Outbox::find(uint64_t index) {
    return index >= _base && index < end() ? &_chunks[static_cast<size_t>(index - _base)] : nullptr;
}

void Outbox::sendAgain(uint64_t index) {
    Chunk* const chunk = find(index);
    if (chunk != nullptr && !std::exchange(chunk->isWaiting, true)) {
        _again.push_back(index);
    }
}

std::optional<uint64_t> Outbox::take() {
    while (!_again.empty()) {
        const uint64_t index = _again.front();
        _again.pop_front();
        if (Chunk* const chunk = find(index)) {
            chunk->isWaiting = false;
            return index;
        }
    }
    return _next < end() ? std::optional(_next++) : std::nullopt;
}

void Outbox::confirm(uint64_t base) {
    for (; _base < base && !_chunks.empty(); ++_base) {
        _chunks.pop_front();
    }
    _next = std::max(_next, _base);
    const auto isGone = [this](uint64_t index) { return index < _base; };
    _again.erase(std::remove_if(_again.begin(), _again.end(), isGone), _again.end());
}

uint64_t Outbox::dropBefore(uint64_t bornUs) {
    uint64_t unsent = 0;
    uint64_t base = _base;
    for (; base < end() && find(base)->bornUs < bornUs; ++base) {
        unsent += find(base)->isSent ? 0 : 1;
    }
    confirm(base);
    return unsent;
}

}  // namespace mirror
