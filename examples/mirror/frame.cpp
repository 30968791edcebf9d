#include "frame.h"

#include <algorithm>

namespace mirror {

namespace {

template <class Number>
char* writeNumber(char* bytes, Number number) {
    for (int shift = 8 * (static_cast<int>(sizeof(number)) - 1); shift >= 0; shift -= 8) {
        *bytes++ = static_cast<char>(number >> shift);
    }
    return bytes;
}

template <class Number>
Number readNumber(const char* bytes) {
    Number number = 0;
    for (size_t i = 0; i < sizeof(number); ++i) {
        number = number << 8 | static_cast<unsigned char>(bytes[i]);
    }
    return number;
}

}  // namespace

void FrameHeader::write(char* bytes) const {
    writeNumber(writeNumber(writeNumber(bytes, session), sentUs), index);
}

std::optional<FrameHeader> FrameHeader::read(const char* bytes, unsigned int size) {
    if (size <= kHeaderSize || size > kDatagramSize) {
        return std::nullopt;
    }
    return FrameHeader{readNumber<uint64_t>(bytes), readNumber<uint64_t>(bytes + 8),
                       readNumber<uint32_t>(bytes + 16)};
}

unsigned int FrameLayout::sizeOf(uint64_t index) const {
    return static_cast<unsigned int>(std::min<uint64_t>(frameSize, fileSize - index * frameSize));
}

bool FrameLayout::isValid() const {
    return frameSize > 0 && frameSize <= kMaxFrameSize && frames() <= UINT32_MAX;
}

}  // namespace mirror
