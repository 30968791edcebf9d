#ifndef NIVUR_PRIVATE_FREE_SET_H
#define NIVUR_PRIVATE_FREE_SET_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace NIVUR {

/// A set of indexes that gives its lowest in at most six steps, one for up to 64 indexes and two
/// for up to 4096. It is a tree of bit words: a bit of the lowest level stands for an index, one of
/// a higher level for a word below that is not zero. Down from the top word, the lowest bit of
/// each leads to the lowest index. It has no lock.
class FreeSet {
  public:
    /// All indexes below `count`.
    explicit FreeSet(unsigned int count) {
        size_t words = count;
        do {
            words = (words + kBits - 1) / kBits;
            _levels.emplace_back(words);
        } while (words > 1);
        for (unsigned int index = 0; index < count; ++index) {
            insert(index);
        }
    }

    /// How many indexes are in the set.
    unsigned int size() const { return _size; }

    /// REQUIRES: the index is below the count.
    bool contains(unsigned int index) const {
        return (_levels.front()[index / kBits] & bit(index)) != 0;
    }

    /// Adds an index below the count; one that is there already stays.
    void insert(unsigned int index) {
        _size += contains(index) ? 0 : 1;
        size_t position = index;
        for (std::vector<uint64_t>& level : _levels) {
            level[position / kBits] |= bit(position);
            position /= kBits;
        }
    }

    /// Removes the lowest index and gives it. REQUIRES: size() is not 0.
    unsigned int takeLowest() {
        size_t position = 0;
        for (auto level = _levels.rbegin(); level != _levels.rend(); ++level) {
            const int lowest = __builtin_ctzll((*level)[position]);
            position = position * kBits + static_cast<size_t>(lowest);
        }
        const auto index = static_cast<unsigned int>(position);
        --_size;
        for (std::vector<uint64_t>& level : _levels) {
            uint64_t& word = level[position / kBits];
            word &= ~bit(position);
            if (word != 0) {
                break;
            }
            position /= kBits;
        }
        return index;
    }

  private:
    static constexpr size_t kBits = 64;

    static uint64_t bit(size_t position) { return uint64_t{1} << (position % kBits); }

    std::vector<std::vector<uint64_t>> _levels;  // the lowest first, the last is one word
    unsigned int _size = 0;
};

}  // namespace NIVUR

#endif
