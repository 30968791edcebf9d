#include "bench.h"
namespace bench {
void addDictionary() {}
}  // namespace bench
