#ifndef MIRROR_PACKETS_H
#define MIRROR_PACKETS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

/// What datagrams carry; protocol.md describes the formats and who sends them when.
namespace mirror {

constexpr unsigned int kHeaderSize = 4;      // kind and packet number, not encrypted
constexpr unsigned int kDataHeaderSize = 8;  // index and time of a chunk, encrypted with it
constexpr unsigned int kMaxChunk = 1316;     // seven packets of an MPEG transport stream
constexpr unsigned int kFileChunk = 1172;    // makes datagrams of 1200 bytes
constexpr unsigned int kMaxBody = kDataHeaderSize + kMaxChunk;
constexpr unsigned int kWireOverhead = 28;  // of IPv4 and UDP

enum class PacketKind : unsigned char { DATA = 1, DATA_AGAIN = 2, FEEDBACK = 3, TIMING = 4 };

/// What a datagram with a chunk begins with.
struct DataHeader {
    uint64_t index = 0;   // of the chunk; 32 bits travel
    uint64_t bornUs = 0;  // when it was read, on the sender's clock; 32 bits travel

    void write(char* body) const;
    static DataHeader read(const char* body);
};

/// What the sender knows of the way and of the clocks.
struct Timing {
    bool wantsAnswer = false;
    uint64_t next = 0;         // the first chunk that was not sent yet
    uint64_t sentUs = 0;       // the sender's clock
    int64_t offsetUs = 0;      // the receiver's clock minus the sender's
    uint32_t roundTripUs = 0;  // 0: nothing is known yet

    size_t write(char* body, size_t size) const;
    static std::optional<Timing> read(const char* body, size_t size);
};

/// What has arrived at the receiver, and what is missing.
struct Feedback {
    struct Gap {
        uint64_t begin;
        uint64_t end;
    };

    uint64_t newest = 0;     // the newest packet that has arrived; 32 bits travel
    uint64_t arrivedUs = 0;  // when it has, on the receiver's clock
    uint32_t heldUs = 0;     // how long ago that was
    uint32_t packets = 0;    // how many have arrived in all, and their bytes; both wrap around
    uint32_t bytes = 0;
    uint64_t base = 0;          // chunks before it are not needed any more; 32 bits travel
    uint32_t reorderingUs = 0;  // how much later than its successors a packet may arrive
    std::vector<Gap> gaps;      // chunks that are missing, as indexes, in order

    /// Writes as many gaps as there is room for.
    size_t write(char* body, size_t size) const;

    /// `newest` and `base` still have to be completed with nearest(), and gaps count from base.
    static std::optional<Feedback> read(const char* body, size_t size);
};

}  // namespace mirror

#endif
