#ifndef MIRROR_COLLECTOR_H
#define MIRROR_COLLECTOR_H

#include <nivur/no_copyable.h>
#include <nivur/run_loop.h>

#include <cstdint>

#include "alarm.h"
#include "chunk_window.h"
#include "datagram_path.h"
#include "packets.h"

namespace mirror {

/// Takes the sender's datagrams, puts their chunks into order, and tells the sender what has
/// arrived and what is missing. It never sends unless something has arrived. On one loop.
class Collector : public NIVUR::NoCopyable {
  public:
    struct Counts {
        uint64_t packets = 0;  // of the sender, of any kind
        uint64_t wireBytes = 0;
        uint64_t bytes = 0;       // of chunks that were taken
        uint64_t chunks = 0;      // that were taken
        uint64_t recovered = 0;   // those of them that had to be sent again
        uint64_t duplicates = 0;  // chunks that were here already
        uint64_t ignored = 0;     // datagrams that fit nowhere
    };

    /// A live one tells at once what is missing, and confirms what has arrived; another confirms
    /// what was popped.
    Collector(NIVUR::RunLoop& loop, DatagramPath& path, unsigned int window, bool isLive);

    ChunkWindow& chunks() { return _chunks; }
    const ChunkWindow& chunks() const { return _chunks; }
    const Counts& counts() const { return _counts; }

    /// What the sender has told last.
    const Timing& timing() const { return _timing; }

    /// The highest number of packets that can be known to have been sent.
    uint64_t packetsSent() const { return _nextPacket; }

    /// Takes a datagram; the chunk that it has brought is in chunks() then. A live window moves on
    /// to where the sender is.
    void take(Packet packet);

    /// Tells the sender what is urgent, and the rest in a while: call it once all datagrams that
    /// have arrived are taken.
    void report();

    /// Tells the sender now.
    void confirm();

  private:
    void takeData(Packet packet);
    void takeTiming(const Packet& packet);
    void notice(bool isMissing, uint64_t nowUs);
    void noticeReordering(uint64_t lateUs, uint64_t nowUs);
    void makeRoom(uint64_t index);
    void tell();

    DatagramPath& _path;
    const bool _isLive;
    Alarm _alarm;
    ChunkWindow _chunks;
    Counts _counts;
    Timing _timing;
    uint64_t _nextPacket = 0;
    uint64_t _arrivedUs = 0;   // when the newest packet came
    unsigned int _untold = 0;  // packets since the last feedback
    uint64_t _tellUs = 0;      // when the next is due; 0: nothing is untold
    uint64_t _reorderingUs = 0;
    uint64_t _reorderedUs = 0;  // when that was last needed
};

}  // namespace mirror

#endif
