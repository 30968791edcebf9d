#ifndef MIRROR_REPLAY_WINDOW_H
#define MIRROR_REPLAY_WINDOW_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace mirror {

/// Detects replayed packets with a bit for each of the newest 4096 numbers (RFC 6479). Older
/// numbers count as replays.
class ReplayWindow {
  public:
    /// The newest number plus 1.
    uint64_t next() const { return _next; }

    bool isNew(uint64_t number) const {
        return number >= _next || (_next - number <= kSize && !bit(number));
    }

    /// Records a number. REQUIRES: isNew(number).
    void add(uint64_t number) {
        for (; _next <= number; ++_next) {
            if (number - _next >= kSize) {
                _next = number - kSize + 1;
            }
            word(_next) &= ~mask(_next);
        }
        word(number) |= mask(number);
    }

  private:
    static constexpr uint64_t kSize = 4096;

    static uint64_t mask(uint64_t number) { return uint64_t{1} << (number % 64); }
    static size_t indexOf(uint64_t number) { return static_cast<size_t>(number % kSize / 64); }
    uint64_t& word(uint64_t number) { return _words[indexOf(number)]; }
    bool bit(uint64_t number) const { return (_words[indexOf(number)] & mask(number)) != 0; }

    std::array<uint64_t, kSize / 64> _words{};
    uint64_t _next = 0;
};

}  // namespace mirror

#endif
