#ifndef MIRROR_PACKETS_H
#define MIRROR_PACKETS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

/// The contents of datagrams. protocol.md describes their formats and when they are sent.
namespace mirror {

constexpr unsigned int kHeaderSize = 4;      // kind and packet number, not encrypted
constexpr unsigned int kDataHeaderSize = 8;  // index and time of a chunk, encrypted with it
constexpr unsigned int kMaxChunk = 1316;     // seven packets of an MPEG transport stream
constexpr unsigned int kFileChunk = 1172;    // makes datagrams of 1200 bytes
constexpr unsigned int kMaxBody = kDataHeaderSize + kMaxChunk;
constexpr unsigned int kWireOverhead = 28;  // of IPv4 and UDP

enum class PacketKind : unsigned char { DATA = 1, DATA_AGAIN = 2, FEEDBACK = 3, TIMING = 4 };

/// The header of a datagram with a chunk.
struct DataHeader {
    uint64_t index = 0;   // of the chunk; its low 32 bits are sent
    uint64_t bornUs = 0;  // when it was read, by the sender's clock; the low 32 bits are sent

    void write(char* body) const;
    static DataHeader read(const char* body);
};

/// The sender's estimates of the clock offset and the round trip.
struct Timing {
    bool wantsAnswer = false;
    uint64_t next = 0;         // the first chunk that was not sent yet
    uint64_t sentUs = 0;       // the sender's clock
    int64_t offsetUs = 0;      // the receiver's clock minus the sender's
    uint32_t roundTripUs = 0;  // 0: not known yet

    size_t write(char* body, size_t size) const;
    static std::optional<Timing> read(const char* body, size_t size);
};

/// What has arrived at the receiver, and which chunks are missing.
struct Feedback {
    struct Gap {
        uint64_t begin;
        uint64_t end;
    };

    uint64_t newest = 0;     // the newest packet that has arrived; its low 32 bits are sent
    uint64_t arrivedUs = 0;  // when it arrived, by the receiver's clock
    uint32_t heldUs = 0;     // how long before this feedback
    uint32_t packets = 0;    // how many have arrived, and their bytes; both wrap around
    uint32_t bytes = 0;
    uint64_t base = 0;          // the first chunk still needed; its low 32 bits are sent
    uint32_t reorderingUs = 0;  // how much later than its successors a packet may arrive
    std::vector<Gap> gaps;      // runs of missing chunks, in order

    /// Writes as many gaps as fit.
    size_t write(char* body, size_t size) const;

    /// The caller must complete `newest` and `base` with nearest(). Gaps are relative to `base`.
    static std::optional<Feedback> read(const char* body, size_t size);
};

}  // namespace mirror

#endif
