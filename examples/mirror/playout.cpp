#include "playout.h"

#include <nivur/system_util.h>

#include <algorithm>
#include <utility>

#include "wire.h"

using NIVUR::SystemUtil;

namespace mirror {

namespace {

constexpr uint64_t kMaxLateUs = 5000;
constexpr int64_t kMaxTurn = 200;  // the offset changes by at most 1/200 of the elapsed time

}  // namespace

Playout::Playout(NIVUR::RunLoop& loop, ChunkWindow& chunks, uint64_t latencyUs, Output output)
    : _chunks(chunks),
      _latencyUs(latencyUs),
      _output(std::move(output)),
      _alarm(loop, [this] { handOut(); }) {}

/// Approaches a changed estimate slowly, so that the stream neither jumps nor stalls.
void Playout::learn(const Timing& timing) {
    if (timing.roundTripUs == 0) {
        return;
    }
    const uint64_t nowUs = SystemUtil::getCPUTimeInMicroseconds();
    const auto limit = static_cast<int64_t>(nowUs - _learnedUs) / kMaxTurn;
    const int64_t error = timing.offsetUs - _offsetUs;
    const bool isFirst = _senderUs == 0 || _chunks.end() == 0;
    _offsetUs += isFirst ? error : std::clamp(error, -limit, limit);
    _senderUs = timing.sentUs;
    _learnedUs = nowUs;
}

/// When the chunk was read, by this end's clock.
uint64_t Playout::bornUs(uint64_t index) const {
    const uint64_t low = DataHeader::read(_chunks.at(index).data()).bornUs;
    return nearest(_senderUs, low, 32) + static_cast<uint64_t>(_offsetUs);
}

/// The first chunk in the window that has arrived; the end if none has.
uint64_t Playout::findFirst() {
    uint64_t index = std::max(_chunks.base(), _chunks.firstMissing());
    if (_chunks.first() != nullptr) {
        return _chunks.base();
    }
    while (index < _chunks.end() && !_chunks.has(index)) {
        ++index;
    }
    return index;
}

void Playout::handOut() {
    const uint64_t nowUs = SystemUtil::getCPUTimeInMicroseconds();
    for (uint64_t index = findFirst(); _senderUs != 0 && index < _chunks.end();
         index = findFirst()) {
        const uint64_t born = bornUs(index);
        if (born + _latencyUs > nowUs) {
            _alarm.set(born + _latencyUs);
            return;
        }
        skipTo(index);
        _all.add(nowUs - born);
        _recent.add(nowUs - born);
        _output(_chunks.pop());
    }
}

void Playout::schedule() {
    const uint64_t nowUs = SystemUtil::getCPUTimeInMicroseconds();
    uint64_t index = findFirst();
    while (_senderUs != 0 && index < _chunks.end() &&
           bornUs(index) + _latencyUs + kMaxLateUs < nowUs) {
        skipTo(index + 1);
        index = findFirst();
    }
    handOut();
}

bool Playout::isOver(uint64_t end) {
    const uint64_t nowUs = SystemUtil::getCPUTimeInMicroseconds();
    _endedUs = _endedUs == 0 ? nowUs : _endedUs;
    const bool isWaiting = _senderUs != 0 && findFirst() < _chunks.end();
    if (!isWaiting && nowUs - _endedUs > _latencyUs + kMaxLateUs) {
        _neverCame = end - std::min(end, _chunks.base());
        return true;
    }
    return _chunks.base() >= end;
}

void Playout::skipTo(uint64_t index) {
    while (_chunks.base() < index) {
        _chunks.pop();
    }
}

Latencies Playout::takeRecent() {
    return std::exchange(_recent, {});
}

}  // namespace mirror
