#include "bench.h"
namespace bench {
void addJson() {}
}  // namespace bench
