#ifndef MIRROR_CLOCK_FIT_H
#define MIRROR_CLOCK_FIT_H

#include <cstdint>
#include <deque>

namespace mirror {

/// Estimates the offset and the drift of the peer's clock. Each exchange has four times: when the
/// question was sent (this clock) and arrived (peer's clock), and when the answer was sent (peer's
/// clock) and arrived (this clock). They determine the offset if both directions have the same
/// delay (D. Mills, RFC 5905); half of any difference is an error. Of each second only the fastest
/// question and the fastest answer count, because they have waited least in queues. A line is
/// fitted to the last 30 of these points.
class ClockFit {
  public:
    void add(uint64_t sentUs, uint64_t arrivedUs, uint64_t answeredUs, uint64_t receivedUs);

    bool isKnown() const { return !_points.empty(); }

    /// The peer's clock minus this one, in microseconds, when this one shows `nowUs`.
    int64_t offsetUs(uint64_t nowUs) const;

    /// How many exchanges the estimate is based on.
    uint64_t exchanges() const;

  private:
    /// The minima of one second.
    struct Point {
        uint64_t atUs;
        int64_t thereUs;  // the shortest delay to the peer, plus the clock offset
        int64_t backUs;   // the shortest delay back, minus the clock offset
        uint64_t exchanges;

        int64_t roundTripUs() const { return thereUs + backUs; }
        int64_t offsetUs() const { return (thereUs - backUs) / 2; }
    };

    double weightOf(const Point& point) const;
    template <class Value>
    double sum(Value value) const;

    std::deque<Point> _points;  // the last one is of the current second
    uint64_t _sinceUs = 0;
    int64_t _fastestUs = 0;
};

}  // namespace mirror

#endif
