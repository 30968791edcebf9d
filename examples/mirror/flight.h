#ifndef MIRROR_FLIGHT_H
#define MIRROR_FLIGHT_H

#include <cstdint>
#include <deque>
#include <optional>

#include "packets.h"

namespace mirror {

/// The packets that were sent and have neither arrived nor been overtaken by one that has, and what
/// their arrival tells about the way. All bytes are counted as on the wire. On one loop.
class Flight {
  public:
    /// What one feedback tells. The rate of delivery is measured as in N. Cardwell et al.,
    /// "Delivery Rate Estimation" (draft-cheng-iccrg-delivery-rate-estimation-02), but at the
    /// receiver, whose clock no delayed feedback distorts.
    struct Report {
        uint64_t roundTripUs = 0;
        uint64_t sentUs = 0;        // of the newest packet that has arrived
        uint64_t rate = 0;          // bytes per second; 0 when they cannot be told
        bool wasLimited = false;    // by what there was to send, not by the way
        bool roundOver = false;     // a round trip has passed since the last such report
        uint64_t roundPackets = 0;  // how many were sent and lost in that round
        uint64_t roundLost = 0;
    };

    void sent(uint64_t number, uint64_t bytes, uint64_t nowUs, uint64_t minRoundTripUs);

    /// Takes a feedback whose newest packet has not been reported before; nothing for others.
    std::optional<Report> arrived(const Feedback& feedback, uint64_t nowUs,
                                  uint64_t minRoundTripUs);

    /// Tells that there is nothing to send although more could be.
    void limit() { _limitedUntil = _delivered + bytes(); }

    uint64_t bytes() const { return _sentBytes - _passedBytes; }

    /// The first number that was not sent.
    uint64_t next() const { return _first + _packets.size(); }

    /// How many packets are known to be lost.
    uint64_t lost() const { return _first > _arrivedPackets ? _first - _arrivedPackets : 0; }

  private:
    struct Entry {
        uint64_t sentUs;
        uint64_t sentBytes;  // of all up to this one
        uint64_t firstSentUs;
        uint64_t delivered;      // when this one was sent
        uint64_t deliveredAtUs;  // on the receiver's clock
        bool limited;
    };

    uint64_t rateOf(const Entry& entry, const Feedback& feedback, uint64_t minRoundTripUs) const;
    void endRound(Report& report);

    std::deque<Entry> _packets;
    uint64_t _first = 0;  // the number of the first of them
    uint64_t _sentBytes = 0;
    uint64_t _passedBytes = 0;  // of those that arrived or were overtaken
    uint64_t _firstSentUs = 0;
    uint64_t _delivered = 0;
    uint64_t _deliveredAtUs = 0;
    uint64_t _arrivedPackets = 0;
    uint64_t _arrivedBytes = 0;
    int64_t _wayUs = 0;  // from the sender's clock to the receiver's, and along the way
    uint64_t _limitedUntil = 0;
    uint64_t _roundEnd = 0;
    uint64_t _roundFirst = 0;
    uint64_t _roundLost = 0;
};

}  // namespace mirror

#endif
