#include <gtest/gtest.h>

#include "../fuzz/ring_model.h"
#include "support/random_inputs.h"

namespace NIVUR {
namespace {

TEST(RingBuffer, DoesAsAString) {
    runOnRandomInputs(checkRing, 500, 500);
}

}  // namespace
}  // namespace NIVUR
