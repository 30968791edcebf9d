#ifndef NIVUR_TESTS_SUPPORT_RANDOM_INPUTS_H
#define NIVUR_TESTS_SUPPORT_RANDOM_INPUTS_H

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "../../fuzz/input.h"

namespace NIVUR {

inline void check(bool holds, const char* promise) {
    EXPECT_TRUE(holds) << promise;
}

/// Runs a model of fuzz/ on random inputs, until one fails.
template <class Model>
void runOnRandomInputs(Model model, unsigned inputs, size_t size) {
    for (unsigned seed = 0; seed < inputs && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        std::vector<uint8_t> bytes(size);
        for (uint8_t& byte : bytes)
            byte = static_cast<uint8_t>(random());
        Input input(bytes.data(), bytes.size());
        model(input);
    }
}

}  // namespace NIVUR

#endif
