#include "bench.h"
namespace bench {
void addSockets() {}
}  // namespace bench
