#ifndef MIRROR_PACER_H
#define MIRROR_PACER_H

#include <algorithm>
#include <cstdint>

namespace mirror {

/// Spreads packets over time. If the timer is late, a burst makes up for it; the burst is limited
/// to half of the shortest round trip (1 to 20 ms), so that it does not fill the network's queue.
class Pacer {
  public:
    /// When the next packet may be sent.
    uint64_t dueUs() const { return _dueUs; }

    /// Accounts for a packet. `rate` is in bytes per second.
    void sent(uint64_t bytes, uint64_t rate, uint64_t minRoundTripUs, uint64_t nowUs) {
        const uint64_t burstUs = std::clamp(minRoundTripUs / 2, kLeastBurstUs, kMostBurstUs);
        _dueUs = std::max(_dueUs, nowUs - std::min(nowUs, burstUs)) + bytes * 1'000'000 / rate;
    }

  private:
    static constexpr uint64_t kLeastBurstUs = 1000;
    static constexpr uint64_t kMostBurstUs = 20'000;

    uint64_t _dueUs = 0;
};

}  // namespace mirror

#endif
