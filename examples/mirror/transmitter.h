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

/// Sends chunks to the receiver and again where they are lost, at the speed that the way has. First
/// it exchanges a few datagrams to learn about the way and the clocks. On one loop.
class Transmitter : public NIVUR::NoCopyable {
  public:
    /// Who is told.
    class Owner {
      public:
        /// Chunks may be added from now on.
        virtual void onOpen() = 0;

        /// There is room for another chunk: the owner may add() one.
        virtual void onRoom() = 0;

        /// More chunks are confirmed than before, or were given up.
        virtual void onConfirmed() = 0;

        /// Datagrams have been sent for seconds and nothing has come back.
        virtual void onDeaf() = 0;

      protected:
        ~Owner() = default;
    };

    struct Counts {
        uint64_t packets = 0;  // with chunks
        uint64_t bytes = 0;    // of chunks, each counted once
        uint64_t again = 0;    // packets with chunks that were sent before
        uint64_t dropped = 0;  // chunks that had become too old before they were ever sent
    };

    /// `latencyUs` is how long a chunk is of use, and `firstRate` the bytes per second at which to
    /// begin; 0 for chunks that stay of use, and for a slow start. The owner outlives this object.
    Transmitter(NIVUR::RunLoop& loop, DatagramPath& path, Owner& owner, uint64_t latencyUs,
                uint64_t firstRate);
    ~Transmitter();

    /// Begins to exchange datagrams.
    void open();

    /// Sends nothing from now on.
    void close();

    /// Adds a chunk that was read at that time; the body has room for a DataHeader at its front.
    void add(NIVUR::SharedPtr<NIVUR::Buffer> body, uint64_t bornUs);

    /// How many chunks wait to be confirmed, and how many were added and confirmed.
    size_t waiting() const { return _outbox.size(); }
    uint64_t added() const { return _outbox.end(); }
    uint64_t confirmed() const { return _outbox.base(); }

    /// Sends what may be sent.
    void pump();

    /// Takes a datagram of the receiver; others are ignored.
    void take(const Packet& packet);

    const Counts& counts() const { return _counts; }
    const RoundTrip& roundTrip() const { return _roundTrip; }
    const Flight& flight() const { return _flight; }

    /// The bandwidth that the way is found to have, in bytes per second.
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
    unsigned int _questions = 0;  // since a chunk was sent
    uint64_t _sentUs = 0;         // when something was last sent
    uint64_t _timingUs = 0;       // when the receiver was last told of the clocks
    uint64_t _heardUs = 0;        // when the last feedback came
    uint64_t _askedUs = 0;        // when a packet was first sent after it, or after a long pause
    Counts _counts;
};

}  // namespace mirror

#endif
