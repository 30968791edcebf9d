#include "chunk_window.h"

#include <algorithm>
#include <utility>

namespace mirror {

void ChunkWindow::add(uint64_t index, Body body, uint64_t nowUs) {
    expect(index, nowUs);
    slot(index).body = std::move(body);
    _end = std::max(_end, index + 1);
    findMissing();
}

bool ChunkWindow::expect(uint64_t end, uint64_t nowUs) {
    end = std::min(end, _base + _slots.size());
    const bool isMore = _end < end;
    for (; _end < end; ++_end) {
        slot(_end).missingSinceUs = nowUs;
    }
    return isMore;
}

ChunkWindow::Body ChunkWindow::pop() {
    Body body = std::exchange(slot(_base).body, {});
    ++_base;
    _end = std::max(_end, _base);
    findMissing();
    return body;
}

void ChunkWindow::giveUp(uint64_t end) {
    while (_base < std::min(end, _end) && first() == nullptr) {
        pop();
    }
    if (_base == _end && _base < end) {  // nothing is here
        _base = _firstMissing = _end = end;
    }
}

void ChunkWindow::findMissing() {
    _firstMissing = std::max(_firstMissing, _base);
    while (_firstMissing < _end && has(_firstMissing)) {
        ++_firstMissing;
    }
}

std::vector<Feedback::Gap> ChunkWindow::gaps(size_t max, uint64_t sinceUs) const {
    std::vector<Feedback::Gap> gaps;
    for (uint64_t index = _firstMissing; index < _end; ++index) {
        if (has(index) || slot(index).missingSinceUs > sinceUs) {
            continue;
        }
        if (!gaps.empty() && gaps.back().end == index) {
            ++gaps.back().end;
        } else if (gaps.size() < max) {
            gaps.push_back({index, index + 1});
        } else {
            break;
        }
    }
    return gaps;
}

}  // namespace mirror
