#ifndef MIRROR_CONGESTION_H
#define MIRROR_CONGESTION_H

#include <cstdint>
#include <deque>

#include "flight.h"
#include "round_trip.h"

namespace mirror {

/// Decides how fast to send and how much may be in flight, from a model of the path's bandwidth and
/// shortest round trip (N. Cardwell, Y. Cheng, C. S. Gunn, S. H. Yeganeh, V. Jacobson, "BBR:
/// Congestion-Based Congestion Control", ACM Queue 14(5), 2016). Losses alone do not slow it down,
/// since a radio link loses packets at any rate; a growing queue does. Losses while a queue stands
/// limit what is in flight, so that a TCP flow on the same link gets its share. Bytes include all
/// headers. Not thread-safe.
class Congestion {
  public:
    /// Starts with at least `firstRate` bytes per second; 0: a slow start with a few packets.
    explicit Congestion(uint64_t firstRate) : _firstRate(firstRate) {}

    /// Updates the model from a report. `inFlight` is the number of bytes still in flight.
    void update(const Flight::Report& report, const RoundTrip& roundTrip, uint64_t inFlight,
                uint64_t nowUs);

    /// Bytes per second at which to send.
    uint64_t rate() const;

    /// How many bytes may be in flight.
    uint64_t window() const;

    /// The estimated bandwidth of the path in bytes per second; 0 if not known yet.
    uint64_t bandwidth() const { return _samples.empty() ? 0 : _samples.front().rate; }

    /// Resets the model, after a long time without feedback.
    void restart();

  private:
    enum class State { STARTUP, DRAIN, CRUISE, PROBE_ROUND_TRIP };
    struct Sample {
        uint64_t round;
        uint64_t atUs;
        uint64_t rate;
    };

    void addSample(uint64_t rate, uint64_t nowUs);
    void endRound(const Flight::Report& report, const RoundTrip& roundTrip, uint64_t nowUs);
    void checkFull(const Flight::Report& report, const RoundTrip& roundTrip);
    void enter(State state, uint64_t nowUs);
    void advance(uint64_t inFlight, uint64_t nowUs);
    void cycle(uint64_t inFlight, uint64_t nowUs);
    void share(const Flight::Report& report);
    void retry(const Flight::Report& report, const RoundTrip& roundTrip, uint64_t nowUs);
    bool isCrowded() const;
    bool isQueueing(const RoundTrip& roundTrip) const;
    bool shouldProbe(const Flight::Report& report, uint64_t nowUs);
    double gain() const;
    uint64_t product() const;
    bool isStream() const { return _firstRate > 0; }
    uint64_t noiseUs() const;
    uint64_t feedbackUs() const;
    uint64_t modelWindow() const;

    uint64_t _firstRate;
    State _state = State::STARTUP;
    uint64_t _enteredUs = 0;
    uint64_t _minUs = 0;
    std::deque<Sample> _samples;  // of the last rounds, decreasing: the front is the maximum
    uint64_t _round = 0;
    uint64_t _fullRate = 0;  // the bandwidth when it last grew, in STARTUP
    unsigned int _fullRounds = 0;
    uint64_t _retryUs = 0;  // when a stream may reenter STARTUP, and how long after that again
    uint64_t _retryGapUs = 500'000;
    unsigned int _phase = 0;
    uint64_t _phaseUs = 0;
    uint64_t _standingUs = UINT64_MAX;  // the shortest round trip of this round
    uint64_t _limit = UINT64_MAX;       // of the bytes in flight, beside other flows
    uint64_t _growth = 0;               // of _limit in the last round
    uint64_t _congestedRound = 0;
    uint64_t _shortUs = 0;  // when the round trip was last close to its minimum
};

}  // namespace mirror

#endif
