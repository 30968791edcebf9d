#ifndef NIVUR_FUZZ_NUMBER_MODEL_H
#define NIVUR_FUZZ_NUMBER_MODEL_H

#include <nivur/string_util.h>

#include "input.h"

namespace NIVUR {

/// The model parses numbers from the last digit on, and generates the words from the bytes.
inline void checkNumbers(Input& input) {
    std::string words;
    std::vector<uint8_t> model{7}, bytes = model;
    for (unsigned i = input.below(4); i > 0; --i) {
        const int value = input.number<int>();
        words += std::to_string(value) + "-x.\1"[input.below(4)] + " \t\n\v\f\r"[input.below(6)];
        model.push_back(static_cast<uint8_t>(value));
        check(StringUtil::string2Int(StringUtil::int2String(value)) == value, "integers return");
    }
    StringUtil::string2UInt8Vector(words, bytes);
    check(bytes == model, "words give their low bytes");
    const std::string text = input.rest(), digits = text.c_str();
    const size_t sign = digits[0] == '-' ? 1 : 0;
    uint32_t sum = 0, weight = 1;
    for (size_t i = digits.size(); i-- > sign; weight *= 10)
        sum += (static_cast<uint8_t>(digits[i]) - uint32_t{'0'}) * weight;
    const int value = StringUtil::string2Int(text);
    check(value == static_cast<int>(sign == 1 ? 0 - sum : sum), "a text is the sum of its digits");
}

}  // namespace NIVUR

#endif
