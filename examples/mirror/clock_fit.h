#ifndef MIRROR_CLOCK_FIT_H
#define MIRROR_CLOCK_FIT_H

#include <cstdint>
#include <deque>

namespace mirror {

/// Estimates how the peer's clock differs from this one and how it drifts. Of each exchange it
/// knows when the question left here and arrived there, and when the answer left there and arrived
/// here; if both ways took equally long, the difference is known (D. Mills, RFC 5905). So the
/// estimate is right as far as the way is symmetric. Of each second only the fastest question and
/// the fastest answer count, which have waited least in queues, and a line is fitted to those of
/// the last seconds.
class ClockFit {
  public:
    void add(uint64_t sentUs, uint64_t arrivedUs, uint64_t answeredUs, uint64_t receivedUs);

    bool isKnown() const { return !_points.empty(); }

    /// The peer's clock minus this one at that time of this clock, in microseconds.
    int64_t offsetUs(uint64_t nowUs) const;

    /// How many exchanges the estimate rests on.
    uint64_t exchanges() const;

  private:
    /// One second.
    struct Point {
        uint64_t atUs;
        int64_t thereUs;  // the shortest way there, plus the difference of the clocks
        int64_t backUs;   // the shortest way back, minus it
        uint64_t exchanges;

        int64_t roundTripUs() const { return thereUs + backUs; }
        int64_t offsetUs() const { return (thereUs - backUs) / 2; }
    };

    double weightOf(const Point& point) const;
    template <class Value>
    double sum(Value value) const;

    std::deque<Point> _points;  // the last one is of the second that has not ended yet
    uint64_t _sinceUs = 0;
    int64_t _fastestUs = 0;
};

}  // namespace mirror

#endif
