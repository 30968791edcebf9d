#ifndef MIRROR_TRANSMITTER_H
#define MIRROR_TRANSMITTER_H

#include <nivur/no_copyable.h>
#include <nivur/run_loop.h>

#include <cstdint>

#include "alarm.h"
#include "clock_fit.h"
#include "congestion.h"
#include "datagram_path.h"
#include "flight.h"
#include "outbox.h"
#include "pacer.h"
#include "packets.h"
#include "round_trip.h"

namespace mirror {

/// Sends chunks to the receiver at the rate that the path allows, and sends lost ones again. First
/// it exchanges a few datagrams to measure the round trip and the clock offset. Used on one loop.
class Transmitter : public NIVUR::NoCopyable {
  public:
    /// Receives the transmitter's events.
    class Owner {
      public:
        /// From now on chunks may be added.
        virtual void onOpen() = 0;

        /// There is room for another chunk: the owner may add() one.
        virtual void onRoom() = 0;

        /// More chunks were confirmed, or dropped as too old.
        virtual void onConfirmed() = 0;

        /// Datagrams were sent for seconds and no feedback has arrived.
        virtual void onDeaf() = 0;

      protected:
        ~Owner() = default;
    };

    struct Counts {
        uint64_t packets = 0;  // with chunks
        uint64_t bytes = 0;    // of added chunks
        uint64_t again = 0;    // packets with chunks that had been sent before
        uint64_t dropped = 0;  // chunks that became too old before they were first sent
    };

    /// `latencyUs` is how long a chunk is useful (0: forever), and `firstRate` the initial rate in
    /// bytes per second (0: slow start). The loop, the path and the owner must outlive this object.
    Transmitter(NIVUR::RunLoop& loop, DatagramPath& path, Owner& owner, uint64_t latencyUs,
                uint64_t firstRate);
    ~Transmitter();

    /// Starts exchanging datagrams.
    void open();

    /// Sends nothing from now on.
    void close();

    /// Adds a chunk that was read at `bornUs`. `body` begins with room for a DataHeader.
    void add(NIVUR::SharedPtr<NIVUR::Buffer> body, uint64_t bornUs);

    /// How many chunks are not confirmed yet, were added, and were confirmed or dropped.
    size_t waiting() const { return _outbox.size(); }
    uint64_t added() const { return _outbox.end(); }
    uint64_t confirmed() const { return _outbox.base(); }

    /// Sends as many chunks as the rate and the window allow now.
    void pump();

    /// Handles a datagram from the receiver. Ignores all but valid feedback.
    void take(const Packet& packet);

    const Counts& counts() const { return _counts; }
    const RoundTrip& roundTrip() const { return _roundTrip; }
    const Flight& flight() const { return _flight; }

    /// The estimated bandwidth of the path in bytes per second.
    uint64_t bandwidth() const { return _congestion.bandwidth(); }

  private:
    void onFeedback(Feedback feedback);
    void learn(const Feedback& feedback, const Flight::Report& report, uint64_t nowUs);
    void repair(const Feedback& feedback, uint64_t sentUs);
    void checkOpen(uint64_t nowUs);
    bool mayTransmit(uint64_t nowUs);
    void transmit(uint64_t index, uint64_t nowUs);
    int64_t offsetUs(uint64_t nowUs) const;
    void sendTiming(bool wantsAnswer);
    void count(size_t bodySize, uint64_t nowUs);
    void dropStale(uint64_t nowUs);
    bool isAnswered() const { return _askedUs <= _heardUs; }
    bool isDeaf(uint64_t nowUs) const;
    void keepTicking();
    void tick();

    NIVUR::RunLoop& _loop;
    DatagramPath& _path;
    Owner& _owner;
    const uint64_t _latencyUs;
    Alarm _pace;
    Outbox _outbox;
    Flight _flight;
    RoundTrip _roundTrip;
    ClockFit _clock;
    Congestion _congestion;
    Pacer _pacer;

    bool _open = false;
    bool _closed = false;
    unsigned int _answers = 0;  // until it is open
    uint64_t _firstAnswerUs = 0;
    long _ticks = 0;              // the timer
    unsigned int _questions = 0;  // sent since a chunk was last sent
    uint64_t _sentUs = 0;         // when something was last sent
    uint64_t _timingUs = 0;       // when the last timing datagram was sent
    uint64_t _heardUs = 0;        // when the last feedback arrived
    uint64_t _askedUs = 0;        // when a packet was first sent after it, or after a long pause
    Counts _counts;
};

}  // namespace mirror

#endif
