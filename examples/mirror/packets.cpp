#include "packets.h"

#include "wire.h"

namespace mirror {

namespace {

constexpr unsigned int kReorderingUnitUs = 100;
constexpr int64_t kMaxOffsetUs = int64_t{1} << 62;  // two of them can be subtracted
constexpr size_t kMaxGapSize = 10;                  // of two compact numbers of 32 bits

}  // namespace

void DataHeader::write(char* body) const {
    Writer writer(body, kDataHeaderSize);
    writer.number(index, 4);
    writer.number(bornUs, 4);
}

DataHeader DataHeader::read(const char* body) {
    Reader reader(body, kDataHeaderSize);
    const uint64_t index = reader.number(4);
    return {index, reader.number(4)};
}

size_t Timing::write(char* body, size_t size) const {
    Writer writer(body, size);
    writer.number(wantsAnswer ? 1 : 0, 1);
    writer.number(next, 4);
    writer.number(sentUs, 8);
    writer.number(static_cast<uint64_t>(offsetUs), 8);
    writer.number(roundTripUs, 4);
    return writer.size();
}

std::optional<Timing> Timing::read(const char* body, size_t size) {
    Reader reader(body, size);
    Timing timing;
    timing.wantsAnswer = reader.number(1) != 0;
    timing.next = reader.number(4);
    timing.sentUs = reader.number(8);
    timing.offsetUs = static_cast<int64_t>(reader.number(8));
    timing.roundTripUs = static_cast<uint32_t>(reader.number(4));
    const bool isSane = timing.offsetUs > -kMaxOffsetUs && timing.offsetUs < kMaxOffsetUs;
    return reader.isValid() && reader.atEnd() && isSane ? std::optional(timing) : std::nullopt;
}

size_t Feedback::write(char* body, size_t size) const {
    Writer writer(body, size);
    writer.number(newest, 4);
    writer.number(arrivedUs, 6);
    writer.number(heldUs, 3);
    writer.number(packets, 4);
    writer.number(bytes, 4);
    writer.number(base, 4);
    writer.number(reorderingUs / kReorderingUnitUs, 2);
    uint64_t written = base;
    for (const Gap& gap : gaps) {
        if (writer.size() + kMaxGapSize > size) {
            break;
        }
        writer.compact(gap.begin - written);
        writer.compact(gap.end - gap.begin);
        written = gap.end;
    }
    return writer.size();
}

std::optional<Feedback> Feedback::read(const char* body, size_t size) {
    Reader reader(body, size);
    Feedback feedback;
    feedback.newest = reader.number(4);
    feedback.arrivedUs = reader.number(6);
    feedback.heldUs = static_cast<uint32_t>(reader.number(3));
    feedback.packets = static_cast<uint32_t>(reader.number(4));
    feedback.bytes = static_cast<uint32_t>(reader.number(4));
    feedback.base = reader.number(4);
    feedback.reorderingUs = static_cast<uint32_t>(reader.number(2)) * kReorderingUnitUs;
    uint64_t offset = 0;
    while (reader.isValid() && !reader.atEnd()) {
        const uint64_t begin = offset + reader.compact();
        offset = begin + reader.compact();
        if (begin > UINT32_MAX || offset > UINT32_MAX || offset < begin) {
            return std::nullopt;
        }
        feedback.gaps.push_back({begin, offset});
    }
    return reader.isValid() ? std::optional(feedback) : std::nullopt;
}

}  // namespace mirror
