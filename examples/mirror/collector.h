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

/// Receives the sender's datagrams, reorders their chunks, and sends feedback on which chunks have
/// arrived and which are missing. It sends nothing unless something has arrived. Used on one loop.
class Collector : public NIVUR::NoCopyable {
  public:
    struct Counts {
        uint64_t packets = 0;  // from the sender, of any kind
        uint64_t wireBytes = 0;
        uint64_t bytes = 0;       // of accepted chunks
        uint64_t chunks = 0;      // accepted chunks
        uint64_t recovered = 0;   // accepted chunks that had been sent again
        uint64_t duplicates = 0;  // chunks that had arrived before
        uint64_t ignored = 0;     // invalid datagrams, and chunks beyond the window
    };

    /// If `isLive`, it reports missing chunks at once and confirms chunks that have arrived;
    /// otherwise it confirms chunks that were popped.
    Collector(NIVUR::RunLoop& loop, DatagramPath& path, unsigned int window, bool isLive);

    ChunkWindow& chunks() { return _chunks; }
    const ChunkWindow& chunks() const { return _chunks; }
    const Counts& counts() const { return _counts; }

    /// The sender's last timing datagram.
    const Timing& timing() const { return _timing; }

    /// How many packets the sender has sent, up to the newest that has arrived.
    uint64_t packetsSent() const { return _nextPacket; }

    /// Handles a datagram, and adds its chunk to chunks(). If live, it gives up missing chunks to
    /// make room.
    void take(Packet packet);

    /// Sends feedback that is due, or schedules it. Call it after take() of all datagrams that have
    /// arrived.
    void report();

    /// Sends feedback now, if any datagram has arrived.
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
    uint64_t _arrivedUs = 0;   // when the newest packet arrived
    unsigned int _untold = 0;  // packets since the last feedback
    uint64_t _tellUs = 0;      // when the next feedback is due; 0: none is needed
    uint64_t _reorderingUs = 0;
    uint64_t _reorderedUs = 0;  // when _reorderingUs was last confirmed
};

}  // namespace mirror

#endif
