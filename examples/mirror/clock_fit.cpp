#include "clock_fit.h"

#include <algorithm>

namespace mirror {

namespace {

constexpr uint64_t kIntervalUs = 1'000'000;
constexpr size_t kMaxPoints = 30;
constexpr double kResolutionUs = 50;
constexpr uint64_t kMinSpanUs = 10'000'000;

}  // namespace

void ClockFit::add(uint64_t sentUs, uint64_t arrivedUs, uint64_t answeredUs, uint64_t receivedUs) {
    const auto there = static_cast<int64_t>(arrivedUs - sentUs);
    const auto back = static_cast<int64_t>(answeredUs - receivedUs);
    const Point point{receivedUs, (there + back) / 2, static_cast<uint64_t>(there - back)};
    if (!isKnown() || receivedUs - _sinceUs >= kIntervalUs) {
        _sinceUs = receivedUs;
        _points.push_back(point);
    } else if (point.roundTripUs < _points.back().roundTripUs) {
        _points.back() = point;
    }
    if (_points.size() > kMaxPoints) {
        _points.pop_front();
    }
    _fastestUs = point.roundTripUs;
    for (const Point& other : _points) {
        _fastestUs = std::min(_fastestUs, other.roundTripUs);
    }
}

/// What an exchange took more than the fastest may be all on one way: its error is half of it.
double ClockFit::weightOf(const Point& point) const {
    const double error = kResolutionUs + static_cast<double>(point.roundTripUs - _fastestUs) / 2;
    return 1 / (error * error);
}

/// The mean of what `value` gives for a point, weighted.
template <class Value>
double ClockFit::mean(Value value) const {
    double weights = 0;
    double sum = 0;
    for (const Point& point : _points) {
        weights += weightOf(point);
        sum += weightOf(point) * value(point);
    }
    return sum / weights;
}

/// A weighted least-squares line. In a short time drift cannot be told from noise: then the mean.
int64_t ClockFit::offsetUs(uint64_t nowUs) const {
    if (!isKnown()) {
        return 0;
    }
    const Point& last = _points.back();
    const auto timeOf = [&last](const Point& point) {
        return -static_cast<double>(last.atUs - point.atUs);
    };
    const auto offsetOf = [&last](const Point& point) {
        return static_cast<double>(point.offsetUs - last.offsetUs);
    };
    const double time = mean(timeOf);
    const double offset = mean(offsetOf);
    const double spread =
        mean([&](const Point& point) { return (timeOf(point) - time) * (timeOf(point) - time); });
    const double slope = mean(
        [&](const Point& point) { return (timeOf(point) - time) * (offsetOf(point) - offset); });
    const bool isLong = last.atUs - _points.front().atUs >= kMinSpanUs;
    const double drift = isLong && spread > 0 ? slope / spread : 0;
    const double ahead = static_cast<double>(nowUs - last.atUs) - time;
    return last.offsetUs + static_cast<int64_t>(offset + drift * ahead);
}

}  // namespace mirror
