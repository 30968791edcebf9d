#include "private/json_scanner.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string_view>

#include "private/common/decimal_text.h"
#include "private/json_bytes.h"

namespace NIVUR {

using json::isAscii;
using json::kEscapedBytes;
using json::kEscapeLetters;
using json::plainEnd;
using json::utf8Length;

namespace {

constexpr int kShortToken = 20;  // bytes; longer tokens are left out of messages
constexpr int kEscapeSize = 6;   // of \u and four digits

bool isDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

bool isLetter(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}

const char* digitsEnd(const char* begin) {
    while (isDigit(*begin)) {
        ++begin;
    }
    return begin;
}

/// Returns the value of a hexadecimal digit, or -1 for other bytes.
int hexDigit(char byte) {
    if (isDigit(byte)) {
        return byte - '0';
    }
    const int letter = byte | 0x20;
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

/// Returns the UTF-16 unit of the \u escape at the start of `text`, or -1 if there is none.
int utf16Unit(const char* text) {
    int unit = text[0] == '\\' && text[1] == 'u' ? 0 : -1;
    for (int i = 2; i < kEscapeSize && unit >= 0; ++i) {
        const int digit = hexDigit(text[i]);
        unit = digit < 0 ? -1 : unit * 16 + digit;
    }
    return unit;
}

bool isHighSurrogate(int unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool isLowSurrogate(int unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// Appends the code point of a \u escape, or of a pair of them. Returns their end.
const char* appendCodePoint(std::string& value, const char* escape) {
    auto point = static_cast<unsigned int>(utf16Unit(escape));
    escape += kEscapeSize;
    if (point < 0x80) {
        value += static_cast<char>(point);
        return escape;
    }
    if (isHighSurrogate(static_cast<int>(point))) {
        const auto low = static_cast<unsigned int>(utf16Unit(escape));
        point = 0x10000 + ((point - 0xD800) << 10) + (low - 0xDC00);
        escape += kEscapeSize;
    }
    const auto tail = [&](unsigned int shift) {
        value += static_cast<char>(0x80 | ((point >> shift) & 0x3F));
    };
    if (point < 0x800) {
        value += static_cast<char>(0xC0 | (point >> 6));
    } else if (point < 0x10000) {
        value += static_cast<char>(0xE0 | (point >> 12));
        tail(6);
    } else {
        value += static_cast<char>(0xF0 | (point >> 18));
        tail(12);
        tail(6);
    }
    tail(0);
    return escape;
}

}  // namespace

std::string JsonString::value() const {
    if (shrinkage == 0) {
        return {text, size};
    }
    const char* from = text;
    const char* const end = text + size;
    std::string value;
    value.reserve(size - shrinkage);
    while (from < end) {
        if (*from != '\\') {
            const void* const found = std::memchr(from, '\\', static_cast<std::size_t>(end - from));
            const char* const stop = found != nullptr ? static_cast<const char*>(found) : end;
            value.append(from, stop);
            from = stop;
        } else if (from[1] == 'u') {
            from = appendCodePoint(value, from);
        } else {
            value += kEscapedBytes[std::strchr(kEscapeLetters, from[1]) - kEscapeLetters];
            from += 2;
        }
    }
    return value;
}

JsonScanner::JsonScanner(const std::string& text)
    : _next(text.c_str()), _token(_next), _textEnd(_next + text.size()) {}

std::size_t JsonScanner::elementsAhead() const {
    const bool areStrings = *_token == STRING;
    const char* const end = _token + std::strcspn(_token, areStrings ? "]{[\\" : "]{[\"");
    if (*end == '\0') {
        return 0;  // the text will be refused
    }
    return static_cast<std::size_t>(areStrings ? (std::count(_token, end, '"') + 1) / 2
                                               : std::count(_token, end, ',') + 1);
}

JsonScanner::Token JsonScanner::scanLonger() {
    if (isDigit(*_token) || *_token == '-') {
        return scanNumber();
    }
    if (isLetter(*_token)) {
        return scanWord();
    }
    return *_token == '\0' ? END : scanOther();
}

/// Ends a number or word. The byte after it has been examined, and so must be valid UTF-8.
JsonScanner::Token JsonScanner::endToken(const char* end, Token token) {
    _next = end;
    return isAscii(*end) || utf8Length(end) > 0 ? token : refuseByte(end);
}

JsonScanner::Token JsonScanner::scanWord() {
    const char* end = _token;
    while (isLetter(*end)) {
        ++end;
    }
    const std::string_view word(_token, static_cast<std::size_t>(end - _token));
    const bool isKnown = word == "true" || word == "false" || word == "null";
    return endToken(end, isKnown ? static_cast<Token>(*_token) : INVALID);
}

JsonScanner::Token JsonScanner::scanOther() {
    const unsigned int length = isAscii(*_token) ? 1 : utf8Length(_token);
    _next += length;
    return length > 0 ? INVALID : refuseByte(_token);
}

JsonScanner::Token JsonScanner::scanNumber() {
    const char* begin = _token + (*_token == '-' ? 1 : 0);
    const char* end = *begin == '0' ? begin + 1 : digitsEnd(begin);
    bool isValid = end > begin && !(*begin == '0' && isDigit(*end));
    const char* const integerEnd = end;
    if (isValid && *end == '.') {
        begin = end + 1;
        end = digitsEnd(begin);
        isValid = end > begin;
    }
    if (isValid && (*end == 'e' || *end == 'E')) {
        begin = end + (end[1] == '+' || end[1] == '-' ? 2 : 1);
        end = digitsEnd(begin);
        isValid = end > begin;
    }
    if (endToken(end, isValid ? INTEGER : INVALID) == INVALID) {
        return INVALID;
    }
    return end == integerEnd ? convertInteger() : convertReal();
}

JsonScanner::Token JsonScanner::convertInteger() {
    using Limits = std::numeric_limits<long long>;
    const bool isNegative = *_token == '-';
    const char* digit = _token + (isNegative ? 1 : 0);
    const auto most = static_cast<unsigned long long>(Limits::max()) + (isNegative ? 1 : 0);
    const bool isLong = _next - digit > Limits::digits10 + 1;  // otherwise the digits fit `value`
    unsigned long long value = 0;
    for (; digit < _next && !isLong; ++digit) {
        value = value * 10 + static_cast<unsigned int>(*digit - '0');
    }
    if (isLong || value > most) {
        refuse(isNegative ? "too big negative integer" : "too big integer");
        return INVALID;
    }
    _integer = static_cast<long long>(isNegative ? 0 - value : value);
    return INTEGER;
}

JsonScanner::Token JsonScanner::convertReal() {
    if (!readDecimal(_token, _next, _real)) {
        refuse("real number overflow");
        return INVALID;
    }
    return REAL;
}

/// Other errors in the string are reported before unpaired surrogates.
JsonScanner::Token JsonScanner::scanString() {
    const char* unpaired = nullptr;
    _string = {_token + 1};
    const char* end = plainEnd(_token + 1, _textEnd);
    while (*end != '"') {
        if (*end == '\\') {
            end = scanEscape(end, unpaired);
            if (end == nullptr) {
                return INVALID;
            }
        } else {
            const unsigned int length = utf8Length(end);
            if (length == 0) {
                return refuseInString(end);
            }
            end += length;
        }
        end = plainEnd(end, _textEnd);
    }
    _next = end + 1;
    _string.size = static_cast<std::size_t>(end - _string.text);
    return unpaired == nullptr ? STRING : refuseSurrogate(unpaired);
}

const char* JsonScanner::scanEscape(const char* escape, const char*& unpaired) {
    if (escape[1] == 'u') {
        return scanCodePoint(escape, unpaired);
    }
    if (escape[1] == '\0' || std::strchr(kEscapeLetters, escape[1]) == nullptr) {
        refuseEscape(escape + 1);
        return nullptr;
    }
    ++_string.shrinkage;
    return escape + 2;
}

const char* JsonScanner::scanCodePoint(const char* escape, const char*& unpaired) {
    const int unit = utf16Unit(escape);
    if (unit < 0) {
        const char* wrong = escape + 2;
        while (hexDigit(*wrong) >= 0) {
            ++wrong;
        }
        refuseEscape(wrong);
        return nullptr;
    }
    _string.hasNul = _string.hasNul || unit == 0;
    const char* const end = escape + kEscapeSize;
    if (isHighSurrogate(unit) && isLowSurrogate(utf16Unit(end))) {
        _string.shrinkage += 2 * kEscapeSize - 4;
        return end + kEscapeSize;
    }
    if (unpaired == nullptr && (isHighSurrogate(unit) || isLowSurrogate(unit))) {
        unpaired = escape;
    }
    _string.shrinkage += kEscapeSize - (unit < 0x80 ? 1 : unit < 0x800 ? 2 : 3);
    return end;
}

void JsonScanner::refuse(const char* message) {
    const std::ptrdiff_t size = _next - _token;
    if (*_error != '\0') {
        return;
    }
    if (size == 0) {
        std::snprintf(_error, sizeof(_error), "%s near end of file", message);
    } else if (size > kShortToken) {
        std::snprintf(_error, sizeof(_error), "%s", message);
    } else {
        std::snprintf(_error, sizeof(_error), "%s near '%.*s'", message, static_cast<int>(size),
                      _token);
    }
}

/// The message contains the token up to that byte.
JsonScanner::Token JsonScanner::refuseByte(const char* wrong) {
    char message[48];
    std::snprintf(message, sizeof(message), "unable to decode byte 0x%x",
                  static_cast<unsigned char>(*wrong));
    _next = wrong;
    if (wrong == _token) {
        std::memcpy(_error, message, sizeof(message));  // refuse() would add "near end of file"
    } else {
        refuse(message);
    }
    return INVALID;
}

/// The message also contains the wrong byte, which may be the first of several.
JsonScanner::Token JsonScanner::refuseEscape(const char* wrong) {
    if (endToken(wrong, STRING) == STRING) {
        _next += *wrong != '\0' ? 1 : 0;
        refuse("invalid escape");
    }
    return INVALID;
}

JsonScanner::Token JsonScanner::refuseInString(const char* wrong) {
    if (!isAscii(*wrong)) {
        return refuseByte(wrong);
    }
    _next = wrong;
    if (*wrong == '\0') {
        refuse("premature end of input");
    } else if (*wrong == '\n') {
        refuse("unexpected newline");
    } else {
        char message[48];
        std::snprintf(message, sizeof(message), "control character 0x%x",
                      static_cast<unsigned int>(*wrong));
        refuse(message);
    }
    return INVALID;
}

JsonScanner::Token JsonScanner::refuseSurrogate(const char* unpaired) {
    const int first = utf16Unit(unpaired);
    const int second = isHighSurrogate(first) ? utf16Unit(unpaired + kEscapeSize) : -1;
    char message[48];
    if (second >= 0) {
        std::snprintf(message, sizeof(message), "invalid Unicode '\\u%04X\\u%04X'",
                      static_cast<unsigned int>(first), static_cast<unsigned int>(second));
    } else {
        std::snprintf(message, sizeof(message), "invalid Unicode '\\u%04X'",
                      static_cast<unsigned int>(first));
    }
    refuse(message);
    return INVALID;
}

}  // namespace NIVUR
