#ifndef MIRROR_ROUND_TRIP_H
#define MIRROR_ROUND_TRIP_H

#include <algorithm>
#include <cstdint>

namespace mirror {

/// The round trip to the peer and back in microseconds: smoothed, with its mean deviation (V.
/// Jacobson, "Congestion Avoidance and Control", 1988), and the shortest of the last 10 to 20 s.
class RoundTrip {
  public:
    void add(uint64_t us, uint64_t nowUs) {
        if (_smoothedUs == 0) {
            _smoothedUs = us;
            _deviationUs = us / 2;
        } else {
            const uint64_t error = us > _smoothedUs ? us - _smoothedUs : _smoothedUs - us;
            _deviationUs = (3 * _deviationUs + error) / 4;
            _smoothedUs = (7 * _smoothedUs + us) / 8;
        }
        if (nowUs - _sinceUs > kWindowUs) {
            _sinceUs = nowUs;
            _earlierMinUs = _minUs;
            _minUs = us;
        }
        _minUs = std::min(_minUs, us);
    }

    bool isKnown() const { return _smoothedUs != 0; }
    uint64_t smoothedUs() const { return _smoothedUs; }
    uint64_t minUs() const { return isKnown() ? std::min(_minUs, _earlierMinUs) : 0; }

    /// The mean deviation from the smoothed round trip.
    uint64_t deviationUs() const { return _deviationUs; }

    /// The time after which an answer counts as lost.
    uint64_t timeoutUs() const { return _smoothedUs + 4 * _deviationUs; }

  private:
    static constexpr uint64_t kWindowUs = 10'000'000;

    uint64_t _smoothedUs = 0;
    uint64_t _deviationUs = 0;
    uint64_t _minUs = UINT64_MAX;
    uint64_t _earlierMinUs = UINT64_MAX;
    uint64_t _sinceUs = 0;
};

}  // namespace mirror

#endif
