#include "reassembly.h"

#include <algorithm>
#include <utility>

using NIVUR::Buffer;
using NIVUR::SharedPtr;

namespace mirror {

namespace {

constexpr uint64_t kPatienceMs = 5;        // for a frame that others have overtaken
constexpr uint64_t kAskedPatienceMs = 10;  // for one that was asked for again

}  // namespace

Reassembly::Outcome Reassembly::add(uint64_t index, SharedPtr<Buffer>& frame, uint64_t nowMs) {
    if (index >= _base + _slots.size()) {
        return Outcome::OUTSIDE;
    }
    if (index < _base || slot(index).frame) {
        return Outcome::DUPLICATE;
    }
    slot(index).frame.swap(frame);
    ++_held;
    _newest = std::max(_newest, index + 1);
    expect(index + 1, nowMs);
    return Outcome::TAKEN;
}

void Reassembly::expect(uint64_t end, uint64_t nowMs) {
    for (end = std::min(end, _base + _slots.size()); _expected < end; ++_expected) {
        slot(_expected).dueMs = nowMs + kPatienceMs;
    }
}

void Reassembly::pop() {
    slot(_base).frame.reset();
    --_held;
    ++_base;
}

std::vector<long long> Reassembly::overdue(unsigned int max, uint64_t nowMs) {
    std::vector<long long> offsets;
    for (uint64_t index = _base; index < _expected && offsets.size() < max; ++index) {
        Slot& candidate = slot(index);
        if (!candidate.frame && nowMs >= candidate.dueMs) {
            candidate.dueMs = nowMs + kAskedPatienceMs;
            offsets.push_back(static_cast<long long>(index - _base));
        }
    }
    return offsets;
}

}  // namespace mirror
