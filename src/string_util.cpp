#include "string_util.h"

#include <algorithm>
#include <cstdlib>

namespace NIVUR {

namespace {

bool isSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

}  // namespace

uint8_t stringToUInt8(const std::string& text) {
    // Like atoi(), but defined for numbers out of range.
    return static_cast<uint8_t>(std::strtol(text.c_str(), nullptr, 10));
}

std::string StringUtil::int2String(long value) {
    return std::to_string(value);
}

int StringUtil::string2Int(const std::string& text) {
    const char* c = text.c_str();
    const bool negative = *c == '-';
    if (negative) {
        ++c;
    }
    uint32_t value = 0;
    for (; *c != '\0'; ++c) {
        // Unsigned bytes, as char is on ARM.
        value = value * 10 + static_cast<unsigned char>(*c) - uint32_t{'0'};
    }
    return static_cast<int>(negative ? 0 - value : value);
}

void StringUtil::string2UInt8Vector(const std::string& text, std::vector<uint8_t>& bytes) {
    std::vector<uint8_t> values;
    values.reserve((text.size() + 1) / 2);
    auto end = text.begin();
    for (auto word = end; (word = std::find_if_not(end, text.end(), isSpace)) != text.end();) {
        end = std::find_if(word, text.end(), isSpace);
        values.push_back(stringToUInt8(std::string(word, end)));
    }
    bytes.insert(bytes.end(), values.begin(), values.end());
}

}  // namespace NIVUR
