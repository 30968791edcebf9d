#ifndef MIRROR_PACER_H
#define MIRROR_PACER_H

#include <algorithm>
#include <cstdint>

namespace mirror {

/// Spreads packets over time. What was not sent for lack of time may be made up for, but no more
/// than a millisecond of it, so that a timer may be late.
class Pacer {
  public:
    /// When the next packet may be sent.
    uint64_t dueUs() const { return _dueUs; }

    void sent(uint64_t bytes, uint64_t rate, uint64_t nowUs) {
        _dueUs = std::max(_dueUs, nowUs - std::min(nowUs, kBurstUs)) + bytes * 1'000'000 / rate;
    }

  private:
    static constexpr uint64_t kBurstUs = 1000;

    uint64_t _dueUs = 0;
};

}  // namespace mirror

#endif
