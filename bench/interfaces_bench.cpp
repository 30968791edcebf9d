#include "bench.h"
namespace bench {
void addInterfaces() {}
}  // namespace bench
