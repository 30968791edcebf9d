#include "bench.h"
namespace bench {
void addText() {}
}  // namespace bench
