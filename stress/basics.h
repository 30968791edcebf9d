#ifndef NIVUR_STRESS_BASICS_H
#define NIVUR_STRESS_BASICS_H

#include <malloc.h>

#include <atomic>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace NIVUR {

inline uint64_t seed = 0;

inline void check(bool holds, const char* promise) {
    if (holds) return;
    std::fprintf(stderr, "stress: broken with seed %" PRIu64 ": %s\n", seed, promise);
    std::abort();
}

struct Random : std::minstd_rand {
    using std::minstd_rand::minstd_rand;
    unsigned below(unsigned end) { return static_cast<unsigned>((*this)() >> 8) % end; }
    bool oneIn(unsigned n) { return below(n) == 0; }
};

struct Counter : std::atomic<uint64_t> {
    void add(uint64_t more = 1) { fetch_add(more, std::memory_order_relaxed); }
};

/// Prints, between two rounds, how many bytes are allocated, and continues at the next line of
/// input. Only the main thread and the watchdog exist then.
inline void pauseForInspection() {
    malloc_trim(0);  // free pages that bursts leave are not a leak
    const struct mallinfo2 heap = mallinfo2();
    std::printf("%zu\n", heap.uordblks + heap.hblkhd);
    std::fflush(stdout);
    while (std::getchar() != '\n') {
    }
}

}  // namespace NIVUR

#endif
