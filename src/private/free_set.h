#ifndef NIVUR_PRIVATE_FREE_SET_H
#define NIVUR_PRIVATE_FREE_SET_H

#include <atomic>
#include <cstddef>
#include <limits>
#include <vector>

#include "no_copyable.h"

namespace NIVUR {

/// Which of a list's buffers are free, by index. Any thread may call take() and giveBack(), without
/// a lock. It lies in the BufferHome, which the list and each of its buffers keep alive.
///
///     hints     . . 1 0 1     bit n is set: word n may have a free index
///     word n    C U 0 1 1     a bit for each index, set: free; C: closed; U: word n has no hint
///
/// A free index is the list's, all others are their holders'. take() clears a bit: its caller is
/// the holder. giveBack() sets the bit and learns from C, in the same step, whether the list is
/// there. close() sets C and learns, in the same step, what is free. So each buffer is deleted
/// either by the list or by its holder. Once its bit is set a holder touches nothing: the list may
/// have deleted buffer and home.
///
/// A take() that finds a word empty clears its hint, then sets U; if the word has changed before
/// that, it sets the hint again. A giveBack() that finds U clears it, then sets the hint, and only
/// then sets the bit. So a word with a free index has its hint while no operation is under way,
/// and an index that is not hinted at the moment is found by looking at every word. A single word
/// needs no hint.
///
/// Memory order: giveBack() releases what the holder did with the buffer, and take() or close()
/// acquires it; U likewise carries the cleared hint to the thread that sets it again.
///
/// verify/pool.pml models all of this and shows what fails without each of these rules.
class FreeSet : public NoCopyable {
  public:
    static constexpr unsigned int kNone = ~0U;  // never an index

    /// All indexes below `count` are free.
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

    /// How many indexes are free, exact while no operation is under way.
    unsigned int size() const {
        int size = 0;
        for (const std::atomic<Word>& word : _words) {
            size += __builtin_popcountl(word.load(std::memory_order_relaxed) & kFree);
        }
        return static_cast<unsigned int>(size);
    }

    /// Takes the lowest free index, or gives kNone. An index that is free throughout the call is
    /// found.
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

    /// Makes an index free, which may be free already, and then the set may be gone at once. False
    /// if the set is closed: what the index stands for stays its holder's.
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

    /// Closes the set, and calls `free` with each index that is free; all others are their holders'
    /// for good. REQUIRES: no take() is under way or follows.
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
    using Word = unsigned long;  // what the machine exchanges at once
    static constexpr size_t kBits = std::numeric_limits<Word>::digits;
    static constexpr size_t kIndexes = kBits - 2;  // of a word
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
    std::vector<std::atomic<Word>> _hints;  // none for a single word
};

}  // namespace NIVUR

#endif
