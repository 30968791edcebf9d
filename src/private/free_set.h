#ifndef NIVUR_PRIVATE_FREE_SET_H
#define NIVUR_PRIVATE_FREE_SET_H

#include <atomic>
#include <cstddef>
#include <limits>
#include <vector>

#include "no_copyable.h"

namespace NIVUR {

/// The set of a list's free buffers, by index. Any thread may call take() and giveBack(), which are
/// lock-free. It is part of the BufferHome, which the list and each of its buffers keep alive.
/// Taking and returning one of 4096 buffers takes 25 ns (docs/performance.md, "take and return,
/// 4096 buffers, 1 thread").
///
///     hints     . . 1 0 1     bit n is set: word n may have a free index
///     word n    C U 0 1 1     a bit for each index, set: free; C: closed; U: word n has no hint
///
/// The list owns the free buffers, and a holder owns each of the others. take() clears a bit, which
/// makes its caller the holder. giveBack() sets the bit and reads in the same step, from C, whether
/// the list still exists. close() sets C and reads in the same step which buffers are free. So each
/// buffer is deleted by exactly one of them, the list or its holder. After giveBack() has set the
/// bit, its caller does not use the buffer or the set any more: the list may have deleted both.
///
/// A take() that finds a word empty clears its hint, then sets U; if the word has changed before
/// that, it sets the hint again. A giveBack() that finds U clears it, then sets the hint, and only
/// then sets the bit. So a word with a free index has its hint while no operation is under way.
/// While operations are under way a hint may be missing, so take() looks at every word before it
/// returns kNone. A single word needs no hint.
///
/// Memory ordering: giveBack() releases what the holder did with the buffer, and take() or close()
/// acquires it; U likewise carries the cleared hint to the thread that sets it again.
///
/// verify/pool.pml models this, and shows what fails without each of these rules.
class FreeSet : public NoCopyable {
  public:
    static constexpr unsigned int kNone = ~0U;  // never an index

    /// Makes a set in which all indexes below `count` are free.
    explicit FreeSet(unsigned int count)
        : _words(words(count, kIndexes)),
          _hints(_words.size() > 1 ? words(_words.size(), kBits) : 0) {
        for (std::atomic<Word>& word : _words) {
            word.store(_hints.empty() ? 0 : kUnhinted, std::memory_order_relaxed);
        }
        for (unsigned int index = 0; index < count; ++index) {
            giveBack(index);
        }
    }

    /// The number of free indexes; exact while no operation is under way.
    unsigned int size() const {
        int size = 0;
        for (const std::atomic<Word>& word : _words) {
            size += __builtin_popcountl(word.load(std::memory_order_relaxed) & kFree);
        }
        return static_cast<unsigned int>(size);
    }

    /// Removes the lowest free index and returns it, or returns kNone. Finds any index that is free
    /// during the whole call.
    unsigned int take() {
        for (size_t group = 0; group < _hints.size(); ++group) {
            Word hinted = _hints[group].load(std::memory_order_relaxed);
            for (; hinted != 0; hinted &= hinted - 1) {
                const size_t number = group * kBits + lowest(hinted);
                const unsigned int index = takeFrom(number);
                if (index != kNone) {
                    return index;
                }
                clearHint(number);
            }
        }
        for (size_t number = 0; number < _words.size(); ++number) {
            const unsigned int index = takeFrom(number);
            if (index != kNone) {
                return index;
            }
        }
        return kNone;
    }

    /// Makes an index free; it may be free already. Returns false if the set is closed: the holder
    /// then keeps the buffer. Otherwise another thread may delete the set as soon as the index is
    /// free.
    bool giveBack(unsigned int index) {
        const size_t number = index / kIndexes;
        std::atomic<Word>& word = _words[number];
        Word now = word.load(std::memory_order_relaxed);
        do {
            if ((now & kUnhinted) != 0) {
                now = setHint(number);
            }
        } while (!word.compare_exchange_weak(now, now | Word{1} << index % kIndexes,
                                             std::memory_order_release, std::memory_order_relaxed));
        return (now & kClosed) == 0;
    }

    /// Closes the set, and calls `free` with each free index; the others stay with their holders.
    /// REQUIRES: no take() is under way or follows.
    template <class Free>
    void close(Free free) {
        for (size_t number = 0; number < _words.size(); ++number) {
            Word left = _words[number].exchange(kClosed, std::memory_order_acquire) & kFree;
            for (; left != 0; left &= left - 1) {
                free(static_cast<unsigned int>(number * kIndexes + lowest(left)));
            }
        }
    }

  private:
    using Word = unsigned long;  // of the size of atomic operations
    static constexpr size_t kBits = std::numeric_limits<Word>::digits;
    static constexpr size_t kIndexes = kBits - 2;  // in a word
    static constexpr Word kFree = ~Word{0} >> 2;
    static constexpr Word kUnhinted = Word{1} << kIndexes;
    static constexpr Word kClosed = kUnhinted << 1;

    static size_t words(size_t bits, size_t perWord) { return (bits + perWord - 1) / perWord; }
    static size_t lowest(Word word) { return static_cast<size_t>(__builtin_ctzl(word)); }

    unsigned int takeFrom(size_t number) {
        std::atomic<Word>& word = _words[number];
        Word now = word.load(std::memory_order_relaxed);
        while ((now & kFree) != 0) {
            const size_t bit = lowest(now);
            if (word.compare_exchange_weak(now, now & (now - 1), std::memory_order_acquire,
                                           std::memory_order_relaxed)) {
                return static_cast<unsigned int>(number * kIndexes + bit);
            }
        }
        return kNone;
    }

    void clearHint(size_t number) {
        std::atomic<Word>& hints = _hints[number / kBits];
        const Word hint = Word{1} << number % kBits;
        hints.fetch_and(~hint, std::memory_order_relaxed);
        Word now = _words[number].load(std::memory_order_relaxed);
        if ((now & kFree) != 0 ||
            !_words[number].compare_exchange_strong(now, now | kUnhinted, std::memory_order_release,
                                                    std::memory_order_relaxed)) {
            hints.fetch_or(hint, std::memory_order_relaxed);
        }
    }

    Word setHint(size_t number) {
        const Word before = _words[number].fetch_and(~kUnhinted, std::memory_order_acquire);
        _hints[number / kBits].fetch_or(Word{1} << number % kBits, std::memory_order_relaxed);
        return before & ~kUnhinted;
    }

    std::vector<std::atomic<Word>> _words;
    std::vector<std::atomic<Word>> _hints;  // empty for a single word
};

}  // namespace NIVUR

#endif
