#include "bench.h"
namespace bench {
void addRing() {}
}  // namespace bench
