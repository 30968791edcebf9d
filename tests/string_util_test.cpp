#include <gtest/gtest.h>

#include <climits>

#include "../fuzz/number_model.h"
#include "support/random_inputs.h"

namespace NIVUR {
namespace {

TEST(StringUtil, DoesAsItsModel) {
    runOnRandomInputs(checkNumbers, 500, 40);
}

TEST(StringUtil, WritesEveryLong) {
    EXPECT_EQ(StringUtil::int2String(LONG_MIN),
              sizeof(long) == 4 ? "-2147483648" : "-9223372036854775808");
}

}  // namespace
}  // namespace NIVUR
