#ifndef MIRROR_LATENCIES_H
#define MIRROR_LATENCIES_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace mirror {

/// A histogram of durations in constant memory, with 1024 classes per power of two.
class Latencies {
  public:
    void add(uint64_t microseconds) {
        ++_counts[classOf(microseconds)];
        ++_total;
    }

    uint64_t count() const { return _total; }

    /// The percentile in microseconds, rounded up by less than 0.1 %; 0 if no duration was added.
    /// Durations of more than eight minutes count as nearly nine.
    uint64_t percentile(unsigned int percent) const {
        uint64_t rest = (_total * percent + 99) / 100;
        for (size_t i = 0; i < _counts.size(); ++i) {
            if (_counts[i] >= rest) {
                return rest == 0 ? 0 : highestOf(i);
            }
            rest -= _counts[i];
        }
        return 0;
    }

  private:
    static constexpr size_t kOctaves = 20;
    static constexpr size_t kSteps = 1024;

    static size_t classOf(uint64_t value) {
        size_t octave = 0;
        while (value >= 2 * kSteps && octave + 2 < kOctaves) {
            value /= 2;
            ++octave;
        }
        return octave * kSteps + static_cast<size_t>(std::min<uint64_t>(value, 2 * kSteps - 1));
    }

    static uint64_t highestOf(size_t index) {
        const size_t octave = index < 2 * kSteps ? 0 : index / kSteps - 1;
        return (static_cast<uint64_t>(index - octave * kSteps + 1) << octave) - 1;
    }

    std::vector<uint32_t> _counts = std::vector<uint32_t>(kOctaves * kSteps);
    uint64_t _total = 0;
};

}  // namespace mirror

#endif
