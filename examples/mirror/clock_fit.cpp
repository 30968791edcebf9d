#include "clock_fit.h"

#include <algorithm>

namespace mirror {

namespace {

constexpr uint64_t kIntervalUs = 1'000'000;
constexpr size_t kMaxPoints = 30;
constexpr double kErrorUs = 200;       // the least error of a point
constexpr double kUsualDrift = 50e-6;  // between two quartz clocks

}  // namespace

void ClockFit::add(uint64_t sentUs, uint64_t arrivedUs, uint64_t answeredUs, uint64_t receivedUs) {
    const auto there = static_cast<int64_t>(arrivedUs - sentUs);
    const auto back = static_cast<int64_t>(receivedUs - answeredUs);
    if (!isKnown() || receivedUs - _sinceUs >= kIntervalUs) {
        _sinceUs = receivedUs;
        _points.push_back({receivedUs, there, back, 0});
    }
    if (_points.size() > kMaxPoints) {
        _points.pop_front();
    }
    Point& last = _points.back();
    last = {receivedUs, std::min(last.thereUs, there), std::min(last.backUs, back),
            last.exchanges + 1};
    const auto isFaster = [](const Point& one, const Point& other) {
        return one.roundTripUs() < other.roundTripUs();
    };
    _fastestUs = std::min_element(_points.begin(), _points.end(), isFaster)->roundTripUs();
}

uint64_t ClockFit::exchanges() const {
    uint64_t count = 0;
    for (const Point& point : _points) {
        count += point.exchanges;
    }
    return count;
}

/// The time by which a point's round trip exceeds the fastest may be spent in one direction: the
/// error of its offset is half of that time.
double ClockFit::weightOf(const Point& point) const {
    const double error = kErrorUs + static_cast<double>(point.roundTripUs() - _fastestUs) / 2;
    return 1 / (error * error);
}

/// The weighted sum of `value` over the points.
template <class Value>
double ClockFit::sum(Value value) const {
    double result = 0;
    for (const Point& point : _points) {
        result += weightOf(point) * value(point);
    }
    return result;
}

/// A weighted least-squares line whose slope is regularized by the usual drift of clocks (ridge
/// regression), because drift is indistinguishable from noise over a short time.
int64_t ClockFit::offsetUs(uint64_t nowUs) const {
    if (!isKnown()) {
        return 0;
    }
    const Point& last = _points.back();
    const auto timeOf = [&last](const Point& point) {
        return -static_cast<double>(last.atUs - point.atUs);
    };
    const auto offsetOf = [&last](const Point& point) {
        return static_cast<double>(point.offsetUs() - last.offsetUs());
    };
    const double weights = sum([](const Point&) { return 1; });
    const double time = sum(timeOf) / weights;
    const double offset = sum(offsetOf) / weights;
    const double spread =
        sum([&](const Point& point) { return (timeOf(point) - time) * (timeOf(point) - time); });
    const double slope = sum(
        [&](const Point& point) { return (timeOf(point) - time) * (offsetOf(point) - offset); });
    const double drift = slope / (spread + 1 / (kUsualDrift * kUsualDrift));
    const double ahead = static_cast<double>(static_cast<int64_t>(nowUs - last.atUs)) - time;
    return last.offsetUs() + static_cast<int64_t>(offset + drift * ahead);
}

}  // namespace mirror
