#ifndef MIRROR_PACE_H
#define MIRROR_PACE_H

#include <algorithm>
#include <cstdint>

namespace mirror {

/// How many frames may be on their way at once. It grows while nearly all arrive and shrinks when
/// many are lost, as they are when a buffer on the way overflows. A link that loses one frame in
/// ten whatever the pace does not slow it down.
class Pace {
  public:
    uint64_t limit() const { return _limit; }

    /// Tells of frames that have arrived.
    void arrived(uint64_t frames) {
        _arrived += frames;
        if (_arrived < _limit) {
            return;
        }
        const bool tooMany = _lost > _arrived / kToleratedShare;
        _limit = tooMany ? std::max(_limit / 2, kMin) : std::min(_limit + kStep, kMax);
        _arrived = 0;
        _lost = 0;
    }

    /// Tells of frames that have not.
    void lost(uint64_t frames) { _lost += frames; }

  private:
    static constexpr uint64_t kMin = 64;
    static constexpr uint64_t kMax = 2048;
    static constexpr uint64_t kStep = 16;
    static constexpr uint64_t kToleratedShare = 8;

    uint64_t _limit = 2 * kMin;
    uint64_t _arrived = 0;
    uint64_t _lost = 0;
};

}  // namespace mirror

#endif
