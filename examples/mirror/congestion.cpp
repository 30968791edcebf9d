#include "congestion.h"

#include <algorithm>
#include <array>

namespace mirror {

namespace {

constexpr uint64_t kPacket = 1400;
constexpr uint64_t kFirstPackets = 16;
constexpr uint64_t kSpare = 4 * kPacket;  // always allowed beyond the product
constexpr uint64_t kSecondUs = 1'000'000;
constexpr uint64_t kBandwidthRounds = 10;
constexpr uint64_t kStreamSampleUs = 2 * kSecondUs;
constexpr uint64_t kMaxRetryGapUs = 30 * kSecondUs;
constexpr uint64_t kNoiseUs = 1000;  // variation of round trips without a queue
constexpr uint64_t kStreamNoiseUs = 5000;
constexpr double kStartupGain = 2.885;  // 2 / ln 2
constexpr double kWindowGain = 2;
constexpr double kBackOff = 0.7;
constexpr uint64_t kGrowth = kPacket * 53 / 100;  // in a round, while a queue stands
constexpr uint64_t kRareRounds = 4;               // without a loss before one that is rare
constexpr std::array<double, 8> kCycle = {1.25, 0.75, 1, 1, 1, 1, 1, 1};
constexpr unsigned int kFullRounds = 3;
constexpr double kFullGrowth = 1.25;
constexpr uint64_t kFullLossShare = 4;  // more than a quarter lost: a full queue, not chance
constexpr uint64_t kCrowdedLossShare = 8;
constexpr uint64_t kMinPhaseUs = 2000;
constexpr uint64_t kProbeAfterUs = 10 * kSecondUs;
constexpr uint64_t kProbeUs = 200'000;

// The time, and the largest number of packets, between two feedbacks.
constexpr uint64_t kMinFeedbackUs = 2000;
constexpr uint64_t kMaxFeedbackUs = 20'000;
constexpr uint64_t kFeedbackPackets = 32;

}  // namespace

void Congestion::restart() {
    *this = Congestion(_firstRate);
}

void Congestion::update(const Flight::Report& report, const RoundTrip& roundTrip, uint64_t inFlight,
                        uint64_t nowUs) {
    _minUs = roundTrip.minUs();
    _round += report.roundOver ? 1 : 0;
    _standingUs = std::min(_standingUs, report.roundTripUs);
    if (report.rate > 0 && (!report.wasLimited || report.rate >= bandwidth())) {
        addSample(report.rate, nowUs);
    }
    if (report.roundOver) {
        endRound(report, roundTrip, nowUs);
    }
    advance(inFlight, nowUs);
    if (shouldProbe(report, nowUs)) {
        enter(State::PROBE_ROUND_TRIP, nowUs);
    }
}

void Congestion::endRound(const Flight::Report& report, const RoundTrip& roundTrip,
                          uint64_t nowUs) {
    if (_state == State::STARTUP) {
        checkFull(report, roundTrip);
    } else if (_state == State::CRUISE) {
        retry(report, roundTrip, nowUs);
    }
    if (_state != State::STARTUP || _fullRounds >= kFullRounds) {
        share(report);
    }
    _standingUs = UINT64_MAX;
}

/// Keeps the largest rate of the last rounds at the front (a monotonic queue). A stream seldom uses
/// the whole bandwidth, so its samples are kept for longer.
void Congestion::addSample(uint64_t rate, uint64_t nowUs) {
    while (!_samples.empty() && _samples.back().rate <= rate) {
        _samples.pop_back();
    }
    _samples.push_back({_round, nowUs, rate});
    const uint64_t leastUs = isStream() ? kStreamSampleUs : 0;
    while (_samples.front().round + kBandwidthRounds < _round &&
           nowUs - _samples.front().atUs > leastUs) {
        _samples.pop_front();
    }
}

/// The path is full when sending faster lengthens the queue but does not raise the delivery rate
/// for three rounds, or when more than a quarter of a round's packets are lost (an eighth if a
/// queue stands).
void Congestion::checkFull(const Flight::Report& report, const RoundTrip& roundTrip) {
    const auto grown = static_cast<double>(_fullRate) * kFullGrowth;
    if (static_cast<double>(bandwidth()) >= grown) {
        _fullRate = bandwidth();
        _fullRounds = 0;
    } else if (!report.wasLimited && isQueueing(roundTrip)) {
        ++_fullRounds;
    }
    const uint64_t lossShare = isCrowded() ? kCrowdedLossShare : kFullLossShare;
    if (report.roundLost > kFirstPackets && report.roundLost * lossShare > report.roundPackets) {
        _fullRounds = kFullRounds;
    }
}

/// Rare losses while a queue stands are congestion, and other flows respond to them. To leave them
/// their share, this flow then limits its window as CUBIC does (RFC 9438, sections 4.3 and 4.6).
/// Frequent losses are random, or due to a flow that does not respond either. While no queue
/// stands, the limit grows ever faster.
void Congestion::share(const Flight::Report& report) {
    const bool isCongested = report.roundLost > 0 && !report.wasLimited && isCrowded();
    const bool isRare = _limit == UINT64_MAX || _round > _congestedRound + kRareRounds;
    _congestedRound = isCongested ? _round : _congestedRound;
    if (isCongested && isRare) {
        const auto peak = static_cast<double>(std::min(_limit, report.roundPeak));
        _limit = std::max(static_cast<uint64_t>(kBackOff * peak), product() + kSpare);
        _growth = 0;
    } else if (_limit != UINT64_MAX) {
        _growth = isCrowded() ? kGrowth : _growth + kPacket;
        _limit = _limit + _growth < modelWindow() ? _limit + _growth : UINT64_MAX;
    }
}

/// Whether a queue has stood for the whole last round: even its shortest round trip was long (the
/// standing round trip of V. Arun, H. Balakrishnan, "Copa: Practical Delay-Based Congestion Control
/// for the Internet", NSDI 2018). Jitter does not lengthen the shortest one as much.
bool Congestion::isCrowded() const {
    return _standingUs > _minUs + _minUs / 8 + noiseUs();
}

bool Congestion::isQueueing(const RoundTrip& roundTrip) const {
    return roundTrip.smoothedUs() > _minUs + _minUs / 4 + noiseUs();
}

uint64_t Congestion::noiseUs() const {
    return isStream() ? kStreamNoiseUs : kNoiseUs;
}

/// A stream that is limited although there is no queue may suffer from an estimate that was
/// measured while it sent little: it reenters STARTUP, at doubling intervals.
void Congestion::retry(const Flight::Report& report, const RoundTrip& roundTrip, uint64_t nowUs) {
    if (isStream() && !report.wasLimited && !isQueueing(roundTrip) && nowUs >= _retryUs) {
        _retryUs = nowUs + _retryGapUs;
        _retryGapUs = std::min(2 * _retryGapUs, kMaxRetryGapUs);
        _fullRounds = 0;
        _fullRate = 0;
        enter(State::STARTUP, nowUs);
    }
}

void Congestion::enter(State state, uint64_t nowUs) {
    _state = state;
    _enteredUs = nowUs;
    _phaseUs = nowUs;
    _phase = 2;  // the first phase with gain 1
}

void Congestion::advance(uint64_t inFlight, uint64_t nowUs) {
    switch (_state) {
        case State::STARTUP:
            if (_fullRounds >= kFullRounds) {
                enter(State::DRAIN, nowUs);
            }
            break;
        case State::DRAIN:
            if (inFlight <= product()) {
                enter(State::CRUISE, nowUs);
            }
            break;
        case State::CRUISE:
            cycle(inFlight, nowUs);
            break;
        case State::PROBE_ROUND_TRIP:
            if (nowUs - _enteredUs > std::max(kProbeUs, _minUs)) {
                _shortUs = nowUs;
                enter(_fullRounds >= kFullRounds ? State::CRUISE : State::STARTUP, nowUs);
            }
            break;
    }
}

/// A phase lasts one round trip; the phase that drains the queue ends when it is empty.
void Congestion::cycle(uint64_t inFlight, uint64_t nowUs) {
    const bool isOver = nowUs - _phaseUs > std::max(_minUs, kMinPhaseUs);
    const bool isEmptied = kCycle[_phase] < 1 && inFlight <= product();
    if (isOver || isEmptied) {
        _phase = static_cast<unsigned int>((_phase + 1) % kCycle.size());
        _phaseUs = nowUs;
    }
}

/// If all round trips of the last seconds were longer than the shortest one, a standing queue may
/// hide the true round trip of the path.
bool Congestion::shouldProbe(const Flight::Report& report, uint64_t nowUs) {
    if (report.roundTripUs <= _minUs + _minUs / 16 + 500 || report.wasLimited || _shortUs == 0) {
        _shortUs = nowUs;
    }
    return _state != State::PROBE_ROUND_TRIP && nowUs - _shortUs > kProbeAfterUs;
}

double Congestion::gain() const {
    switch (_state) {
        case State::STARTUP:
            return kStartupGain;
        case State::DRAIN:
            return 1 / kStartupGain;
        case State::CRUISE:
            return kCycle[_phase];
        case State::PROBE_ROUND_TRIP:
            return 1;
    }
    return 1;
}

/// The bandwidth-delay product: the bytes in flight that fill the path without a queue.
uint64_t Congestion::product() const {
    return bandwidth() * _minUs / kSecondUs;
}

uint64_t Congestion::rate() const {
    const double rate = gain() * static_cast<double>(bandwidth());
    const uint64_t first = kFirstPackets * kPacket * kSecondUs / std::max(_minUs, kMaxFeedbackUs);
    const uint64_t least = _state == State::STARTUP ? std::max(_firstRate, first) : kSpare;
    return std::max(static_cast<uint64_t>(rate), least);
}

/// How long the receiver delays feedback.
uint64_t Congestion::feedbackUs() const {
    return isStream() ? kMaxFeedbackUs : std::clamp(_minUs / 4, kMinFeedbackUs, kMaxFeedbackUs);
}

uint64_t Congestion::window() const {
    return _state == State::PROBE_ROUND_TRIP ? product() / 2 + kSpare
                                             : std::min(_limit, modelWindow());
}

uint64_t Congestion::modelWindow() const {
    const uint64_t unreported =
        std::min(bandwidth() * feedbackUs() / kSecondUs, kFeedbackPackets * kPacket);
    const uint64_t known =
        static_cast<uint64_t>(kWindowGain * static_cast<double>(product())) + unreported + kSpare;
    const uint64_t first =
        std::max(kFirstPackets * kPacket, _firstRate * (_minUs + 2 * kMaxFeedbackUs) / kSecondUs);
    return _state == State::STARTUP ? std::max(known, first) : known;
}

}  // namespace mirror
