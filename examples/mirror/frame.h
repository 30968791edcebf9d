#ifndef MIRROR_FRAME_H
#define MIRROR_FRAME_H

#include <cstdint>
#include <optional>

namespace mirror {

constexpr unsigned int kDatagramSize = 1200;  // fits every link that IPv6 may use
constexpr unsigned int kHeaderSize = 20;
constexpr unsigned int kMaxFrameSize = kDatagramSize - kHeaderSize;

/// What each datagram begins with; the bytes of one frame, a piece of the file, follow. In network
/// byte order.
struct FrameHeader {
    uint64_t session;  // a secret that the receiver has told the sender
    uint64_t sentUs;   // on the sender's clock
    uint32_t index;    // of the frame in the file

    /// Writes kHeaderSize bytes.
    void write(char* bytes) const;

    /// The header of a datagram of `size` bytes; nothing when it cannot hold a frame.
    static std::optional<FrameHeader> read(const char* bytes, unsigned int size);
};

/// How a file is cut into frames, all but the last of the same size.
struct FrameLayout {
    uint64_t fileSize = 0;
    unsigned int frameSize = kMaxFrameSize;

    uint64_t frames() const { return fileSize / frameSize + (fileSize % frameSize != 0 ? 1 : 0); }
    unsigned int sizeOf(uint64_t index) const;

    /// Whether the index of every frame fits its header and frames fit datagrams.
    bool isValid() const;
};

}  // namespace mirror

#endif
