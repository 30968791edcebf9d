#ifndef MIRROR_FLIGHT_H
#define MIRROR_FLIGHT_H

#include <cstdint>
#include <deque>
#include <optional>

#include "packets.h"

namespace mirror {

/// The packets in flight: sent, and neither arrived nor overtaken by a packet that has arrived.
/// Their arrival gives the round trip and the delivery rate. Bytes include all headers. Not
/// thread-safe.
class Flight {
  public:
    /// The measurements from one feedback. The delivery rate is measured as in N. Cardwell et al.,
    /// "Delivery Rate Estimation" (draft-cheng-iccrg-delivery-rate-estimation-02), but by the
    /// receiver's clock, so that delayed feedback does not distort it.
    struct Report {
        uint64_t roundTripUs = 0;
        uint64_t sentUs = 0;        // when the newest arrived packet was sent
        uint64_t rate = 0;          // bytes per second; 0 if not measurable
        bool wasLimited = false;    // `rate` was limited by a lack of data, not by the path
        bool roundOver = false;     // a round trip has passed since the last one with roundOver
        uint64_t roundPackets = 0;  // how many were sent, and how many lost, in that round
        uint64_t roundLost = 0;
        uint64_t roundPeak = 0;  // the most bytes that were in flight in that round
    };

    void sent(uint64_t number, uint64_t bytes, uint64_t nowUs, uint64_t minRoundTripUs);

    /// Evaluates a feedback; nullopt if its newest packet was reported before or never sent.
    std::optional<Report> arrived(const Feedback& feedback, uint64_t nowUs,
                                  uint64_t minRoundTripUs);

    /// Notes that the sender has no data although the window has room.
    void limit() { _limitedUntil = _delivered + bytes(); }

    uint64_t bytes() const { return _sentBytes - _passedBytes; }

    /// The number of the next packet to be sent.
    uint64_t next() const { return _first + _packets.size(); }

    /// How many packets are known to be lost.
    uint64_t lost() const { return _first > _arrivedPackets ? _first - _arrivedPackets : 0; }

  private:
    struct Entry {
        uint64_t sentUs;
        uint64_t sentBytes;  // of all packets up to this one
        uint64_t firstSentUs;
        uint64_t delivered;      // bytes, when this one was sent
        uint64_t deliveredAtUs;  // on the receiver's clock
        bool limited;
    };

    uint64_t rateOf(const Entry& entry, const Feedback& feedback, uint64_t minRoundTripUs) const;
    void endRound(Report& report);

    std::deque<Entry> _packets;
    uint64_t _first = 0;  // the number of the first packet in _packets
    uint64_t _sentBytes = 0;
    uint64_t _passedBytes = 0;  // of packets that arrived or were overtaken
    uint64_t _firstSentUs = 0;
    uint64_t _delivered = 0;
    uint64_t _deliveredAtUs = 0;
    uint64_t _arrivedPackets = 0;
    uint64_t _arrivedBytes = 0;
    int64_t _wayUs = 0;  // the clock offset plus the one-way delay
    uint64_t _limitedUntil = 0;
    uint64_t _roundEnd = 0;
    uint64_t _roundFirst = 0;
    uint64_t _roundLost = 0;
    uint64_t _roundPeak = 0;
};

}  // namespace mirror

#endif
