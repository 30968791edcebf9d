#include "private/common/decimal_text.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <system_error>

namespace NIVUR {

namespace {

/// Returns the exponent after the 'e' at position `e`, or 0 if there is none. It is limited, so
/// that adding a position to it does not overflow.
long long exponentOf(std::string_view number, size_t e) {
    constexpr long long kMost = 1LL << 62;
    if (e == std::string_view::npos) {
        return 0;
    }
    const bool isNegative = number[e + 1] == '-';
    const std::string_view digits = number.substr(number.find_first_of("0123456789", e));
    long long exponent = 0;
    if (std::from_chars(digits.data(), digits.data() + digits.size(), exponent).ec != std::errc()) {
        exponent = kMost;
    }
    exponent = std::min(exponent, kMost);
    return isNegative ? -exponent : exponent;
}

/// Returns whether a number that from_chars() found out of range is too large, rather than too
/// close to 0. The place of its first digit that is not 0 decides.
bool isLarge(std::string_view number) {
    const size_t e = number.find_first_of("eE");
    const std::string_view digits = number.substr(0, e);
    const size_t point = std::min(digits.find('.'), digits.size());
    const size_t first = digits.find_first_of("123456789");
    const auto place = static_cast<long long>(point) - static_cast<long long>(first);
    return place + exponentOf(number, e) > 0;
}

}  // namespace

char* writeDecimal(double value, char (&text)[kDecimalSize]) {
    return std::to_chars(text, text + kDecimalSize, value, std::chars_format::general, 17).ptr;
}

bool readDecimal(const char* begin, const char* end, double& value) {
    if (std::from_chars(begin, end, value).ec == std::errc()) {
        return true;
    }
    value = *begin == '-' ? -0.0 : 0.0;
    return !isLarge({begin, static_cast<size_t>(end - begin)});
}

}  // namespace NIVUR
