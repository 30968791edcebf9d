#ifndef MIRROR_LIMITS_H
#define MIRROR_LIMITS_H

#include <cstdint>

// The usage in options.cpp and README.md repeat these numbers.

namespace mirror {

constexpr uint64_t kMaxLatencyMs = 60'000;
constexpr unsigned int kMaxWindow = 16'384;  // chunks that a receiver holds
constexpr unsigned int kSocketBuffer = 4 * 1024 * 1024;
constexpr unsigned int kStatsMs = 1000;

}  // namespace mirror

#endif
