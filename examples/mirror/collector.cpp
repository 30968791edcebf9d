#include "collector.h"

#include <nivur/system_util.h>

#include <algorithm>
#include <utility>

#include "wire.h"

using NIVUR::SystemUtil;

namespace mirror {

namespace {

constexpr unsigned int kMaxUntold = 32;
constexpr uint64_t kLiveDelayUs = 20'000;
constexpr uint64_t kGapDelayUs = 10'000;
constexpr uint64_t kShortestDelayUs = 2000;
constexpr size_t kMaxFeedback = 1100;
constexpr size_t kMaxGaps = 400;
constexpr uint64_t kMaxReorderingUs = 100'000;
constexpr uint64_t kForgetReorderingUs = 2'000'000;

}  // namespace

Collector::Collector(NIVUR::RunLoop& loop, DatagramPath& path, unsigned int window, bool isLive)
    : _path(path), _isLive(isLive), _alarm(loop, [this] { tell(); }), _chunks(window) {}

void Collector::take(Packet packet) {
    const uint64_t nowUs = SystemUtil::getCPUTimeInMicroseconds();
    ++_counts.packets;
    _counts.wireBytes += packet.body->usedSize() + kHeaderSize + kTagSize;
    if (packet.number >= _nextPacket) {
        _nextPacket = packet.number + 1;
        _arrivedUs = nowUs;
    }
    ++_untold;
    if (_tellUs == 0) {
        const uint64_t delayUs =
            std::clamp<uint64_t>(_timing.roundTripUs / 4, kShortestDelayUs, kLiveDelayUs);
        _tellUs = nowUs + (!_isLive                                 ? delayUs
                           : _chunks.firstMissing() < _chunks.end() ? kGapDelayUs
                                                                    : kLiveDelayUs);
    }
    const bool isData = packet.kind == PacketKind::DATA || packet.kind == PacketKind::DATA_AGAIN;
    if (packet.kind == PacketKind::TIMING) {
        takeTiming(packet);
    } else if (isData && packet.body->usedSize() > kDataHeaderSize) {
        takeData(std::move(packet));
    } else {
        ++_counts.ignored;
    }
}

void Collector::takeData(Packet packet) {
    const uint64_t nowUs = SystemUtil::getCPUTimeInMicroseconds();
    const uint64_t index = nearest(_chunks.end(), DataHeader::read(packet.body->data()).index, 32);
    if (_isLive) {
        makeRoom(index);
    }
    if (!_chunks.isInside(index) || _chunks.has(index)) {
        ++(index < _chunks.base() + _chunks.size() ? _counts.duplicates : _counts.ignored);
        return;
    }
    const uint64_t sinceUs = _chunks.missingSinceUs(index);
    if (packet.kind == PacketKind::DATA_AGAIN) {
        ++_counts.recovered;
    } else if (sinceUs != 0) {
        noticeReordering(nowUs - sinceUs, nowUs);
    }
    ++_counts.chunks;
    _counts.bytes += packet.body->usedSize() - kDataHeaderSize;
    notice(_chunks.expect(index, nowUs), nowUs);
    _chunks.add(index, std::move(packet.body), nowUs);
}

/// Gives up missing chunks of a stream that has run ahead, to make room for chunk `index`. Chunks
/// that have arrived stay until they are due.
void Collector::makeRoom(uint64_t index) {
    const uint64_t before = uint64_t{_chunks.size()} - 1;
    _chunks.giveUp(index - std::min(index, before));
}

void Collector::takeTiming(const Packet& packet) {
    const auto timing = Timing::read(packet.body->data(), packet.body->usedSize());
    if (!timing) {
        ++_counts.ignored;
        return;
    }
    const uint64_t nowUs = SystemUtil::getCPUTimeInMicroseconds();
    _timing = *timing;
    _timing.next = nearest(_chunks.end(), timing->next, 32);
    notice(_chunks.expect(_timing.next, nowUs), nowUs);
    _tellUs = timing->wantsAnswer ? nowUs : _tellUs;
}

/// Missing chunks of a stream are reported as soon as reordering cannot explain their absence.
void Collector::notice(bool isMissing, uint64_t nowUs) {
    if (isMissing && _isLive) {
        _tellUs = std::min(_tellUs, nowUs + _reorderingUs);
    }
}

/// A chunk that counted as missing has arrived without being sent again: the network reorders
/// packets by at least this time.
void Collector::noticeReordering(uint64_t lateUs, uint64_t nowUs) {
    if (lateUs >= _reorderingUs * 3 / 4 || nowUs - _reorderedUs > kForgetReorderingUs) {
        _reorderingUs = std::min(kMaxReorderingUs, lateUs + lateUs / 4 + 100);
        _reorderedUs = nowUs;
    }
}

void Collector::report() {
    const uint64_t nowUs = SystemUtil::getCPUTimeInMicroseconds();
    if (_tellUs != 0 && (_tellUs <= nowUs || _untold >= kMaxUntold)) {
        tell();
    } else if (_tellUs != 0) {
        _alarm.set(_tellUs);
    }
}

void Collector::confirm() {
    if (_nextPacket > 0) {
        _tellUs = SystemUtil::getCPUTimeInMicroseconds();
        tell();
    }
}

void Collector::tell() {
    const uint64_t nowUs = SystemUtil::getCPUTimeInMicroseconds();
    if (_tellUs == 0) {
        return;
    }
    Feedback feedback;
    feedback.newest = _nextPacket - 1;
    feedback.arrivedUs = _arrivedUs;
    feedback.heldUs = static_cast<uint32_t>(nowUs - _arrivedUs);
    feedback.packets = static_cast<uint32_t>(_counts.packets);
    feedback.bytes = static_cast<uint32_t>(_counts.wireBytes);
    feedback.base = _isLive ? _chunks.firstMissing() : _chunks.base();
    feedback.reorderingUs = static_cast<uint32_t>(_reorderingUs);
    feedback.gaps = _chunks.gaps(kMaxGaps, nowUs - std::min(nowUs, _reorderingUs));
    char body[kMaxFeedback];
    const size_t size = feedback.write(body, sizeof(body));
    _path.queue(PacketKind::FEEDBACK, body, size);
    _path.flush();
    _untold = 0;
    _tellUs = 0;
}

}  // namespace mirror
