#include "bench.h"
namespace bench {
void addEvents() {}
}  // namespace bench
