#ifndef MIRROR_CONGESTION_H
#define MIRROR_CONGESTION_H

#include <cstdint>
#include <deque>

#include "flight.h"
#include "round_trip.h"

namespace mirror {

/// Decides how fast to send and how much may be on its way: a model of the way's bandwidth and
/// shortest round trip (N. Cardwell, Y. Cheng, C. S. Gunn, S. H. Yeganeh, V. Jacobson, "BBR:
/// Congestion-Based Congestion Control", ACM Queue 14(5), 2016). Losses alone do not slow it down,
/// since a radio link loses whatever the rate is; a queue on the way does. Bytes are counted as on
/// the wire. On one loop.
class Congestion {
  public:
    /// `firstRate`, in bytes per second, is sent before anything is known; 0: a few packets.
    explicit Congestion(uint64_t firstRate) : _firstRate(firstRate) {}

    /// Learns from a report. `inFlight` is what is still on its way.
    void update(const Flight::Report& report, const RoundTrip& roundTrip, uint64_t inFlight,
                uint64_t nowUs);

    /// Bytes per second at which to send.
    uint64_t rate() const;

    /// How many bytes may be on their way.
    uint64_t window() const;

    /// The bandwidth of the way in bytes per second, as far as it is known.
    uint64_t bandwidth() const { return _samples.empty() ? 0 : _samples.front().rate; }

    /// Forgets the way: nothing has come through for long.
    void restart();

  private:
    enum class State { STARTUP, DRAIN, CRUISE, PROBE_ROUND_TRIP };
    struct Sample {
        uint64_t round;
        uint64_t atUs;
        uint64_t rate;
    };

    void addSample(uint64_t rate, uint64_t nowUs);
    void checkFull(const Flight::Report& report, const RoundTrip& roundTrip);
    void enter(State state, uint64_t nowUs);
    void advance(uint64_t inFlight, uint64_t nowUs);
    void cycle(uint64_t inFlight, uint64_t nowUs);
    void retry(const Flight::Report& report, const RoundTrip& roundTrip, uint64_t nowUs);
    bool isQueueing(const RoundTrip& roundTrip) const;
    bool shouldProbe(const Flight::Report& report, uint64_t nowUs);
    double gain() const;
    uint64_t product() const;

    uint64_t _firstRate;
    State _state = State::STARTUP;
    uint64_t _enteredUs = 0;
    uint64_t _minUs = 0;
    std::deque<Sample> _samples;  // of the last rounds, each less than the one before
    uint64_t _round = 0;
    uint64_t _fullRate = 0;  // when it last grew, in STARTUP
    unsigned int _fullRounds = 0;
    uint64_t _retryUs = 0;  // when a stream may start anew, and how long after that again
    uint64_t _retryGapUs = 500'000;
    unsigned int _phase = 0;
    uint64_t _phaseUs = 0;
    uint64_t _shortUs = 0;  // when the round trip was last close to its minimum
};

}  // namespace mirror

#endif
