#ifndef MIRROR_DROPPER_H
#define MIRROR_DROPPER_H

#include <cstdint>

namespace mirror {

/// Chooses a share of all datagrams pseudo-randomly, the same in every run: D. Knuth's linear
/// congruential generator MMIX.
class Dropper {
  public:
    explicit Dropper(unsigned int percent) : _percent(percent) {}

    bool chooses() {
        _state = _state * 6364136223846793005U + 1442695040888963407U;
        return (_state >> 33) % 100 < _percent;
    }

  private:
    const unsigned int _percent;
    uint64_t _state = 1;
};

}  // namespace mirror

#endif
