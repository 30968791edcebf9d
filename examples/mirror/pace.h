#ifndef MIRROR_PACE_H
#define MIRROR_PACE_H

#include <algorithm>
#include <cstdint>

namespace mirror {

/// How many frames may be on their way at once. It grows as long as frames do not queue up on the
/// way, which shows in the round trip before anything is lost, and shrinks when they do or when
/// many are lost. A link that loses one frame in twenty whatever the pace does not slow it down.
class Pace {
  public:
    uint64_t limit() const { return _limit; }

    /// How long the last frame that arrived took to the receiver and back, in microseconds.
    uint64_t roundTripUs() const { return _latestUs; }

    /// Tells of frames that have arrived or were overtaken, the last after that round trip.
    void arrived(uint64_t frames, uint64_t roundTripUs) {
        _latestUs = roundTripUs;
        _recentUs = std::min(_recentUs, roundTripUs);
        _arrived += frames;
        if (_arrived >= kSample) {
            adapt();
        }
    }

    /// Tells of one that has not.
    void lost() { ++_lost; }

  private:
    static constexpr uint64_t kMin = 64;
    static constexpr uint64_t kMax = 4096;
    static constexpr uint64_t kStepShare = 8;
    static constexpr uint64_t kSample = 1024;  // losses are reported in bunches
    static constexpr uint64_t kToleratedShare = 8;
    static constexpr uint64_t kToleratedUs = 5000;

    void adapt() {
        _quickestUs = std::min(_quickestUs, _recentUs);
        if (_lost > _arrived / kToleratedShare) {
            _limit = std::max(_limit / 2, kMin);
        } else if (_recentUs > 2 * _quickestUs + kToleratedUs) {
            _limit = std::max(_limit - _limit / kStepShare, kMin);
        } else {
            _limit = std::min(_limit + _limit / kStepShare, kMax);
        }
        _recentUs = UINT64_MAX;
        _arrived = 0;
        _lost = 0;
    }

    uint64_t _limit = 2 * kMin;
    uint64_t _latestUs = 0;
    uint64_t _quickestUs = UINT64_MAX;

    // Since the limit was adapted.
    uint64_t _recentUs = UINT64_MAX;
    uint64_t _arrived = 0;
    uint64_t _lost = 0;
};

}  // namespace mirror

#endif
