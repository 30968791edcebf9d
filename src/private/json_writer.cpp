#include "private/json_writer.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "private/common/decimal_text.h"
#include "private/json_bytes.h"

namespace NIVUR {

namespace {

using json::isAscii;
using json::plainEnd;
using json::utf8Length;

/// Returns whether a text, up to its first NUL, is UTF-8.
bool isUtf8(const std::string& text) {
    const char* const limit = text.c_str() + text.size();
    const char* next = plainEnd(text.c_str(), limit);
    while (*next != '\0') {
        const unsigned int length = isAscii(*next) ? 1 : utf8Length(next);
        if (length == 0) {
            return false;
        }
        next = plainEnd(next + length, limit);
    }
    return true;
}

template <class Value>
bool fitsJson(const Value& value) {
    if constexpr (std::is_same_v<Value, std::string>) {
        return isUtf8(value);
    } else if constexpr (std::is_same_v<Value, long double>) {
        return std::isfinite(static_cast<double>(value));
    } else {
        return true;
    }
}

/// Writes a number that has few digits, like whole numbers and quarters, as "%.17g" does. Returns
/// the end of the text, or null for other numbers and 0.
char* writeShort(double value, char* text) {
    constexpr long long kParts = 1024;       // in 1; such a number is a multiple of 1/1024
    constexpr long long kDigits = 9765625;   // 1/1024 is 0.0009765625
    constexpr std::size_t kMostDigits = 10;  // after the point, with leading zeros
    if (!(std::fabs(value) < 1e6) || value == 0) {
        return nullptr;
    }
    const auto parts = static_cast<long long>(std::fabs(value) * kParts);
    if (static_cast<double>(parts) != std::fabs(value) * kParts) {
        return nullptr;
    }
    if (value < 0) {
        *text++ = '-';
    }
    // The fraction is written after a digit 1, which keeps its leading zeros and is then replaced
    // by the point.
    char* const point = std::to_chars(text, text + 8, parts / kParts).ptr;
    char* end =
        std::to_chars(point, point + kMostDigits + 1, 10000000000 + parts % kParts * kDigits).ptr;
    *point = '.';
    while (end[-1] == '0') {
        --end;
    }
    return end[-1] == '.' ? end - 1 : end;
}

void appendEscape(std::string& text, char byte) {
    const char* const known = std::strchr(json::kEscapedBytes, byte);
    text += '\\';
    if (known != nullptr) {
        text += json::kEscapeLetters[known - json::kEscapedBytes];
    } else {
        text.append("u00").append(1, byte < 0x10 ? '0' : '1');
        text += "0123456789ABCDEF"[byte & 0xF];
    }
}

}  // namespace

std::string JsonWriter::write(const Dictionary& record) {
    put(record);
    return finish();
}

std::string JsonWriter::write(const std::vector<Dictionary>& records) {
    put(records);
    return finish();
}

std::string JsonWriter::finish() {
    while (!_open.empty() && !_isTooDeep) {
        std::visit([this](auto& level) { writeNext(level); }, _open.back());
    }
    return _isTooDeep ? std::string() : std::move(_text);
}

/// Returns whether JSON can represent a member.
bool JsonWriter::isCarried(const Dictionary::Entry& entry) {
    return fitsJson(entry.key) &&
           std::visit([](const auto& value) { return fitsJson(value); }, entry.value);
}

/// Returns the member that is written in place of an entry; null if none is. It is the entry itself
/// unless several keys have the same name.
const Dictionary::Entry* JsonWriter::writtenAt(const Dictionary::Entry& entry, const Names* names) {
    if (!isCarried(entry)) {
        return nullptr;
    }
    if (names == nullptr) {
        return &entry;
    }
    const SameName& same = names->at(entry.key.c_str());
    return same.first == &entry ? same.last : nullptr;
}

/// Writes members up to the next object or array of objects, which is then open, or to the end.
void JsonWriter::writeNext(Members& members) {
    const std::size_t depth = _open.size();
    while (const Dictionary::Entry* const next = members.rest.next()) {
        const Dictionary::Entry* const entry = writtenAt(*next, members.names.get());
        if (entry == nullptr) {
            continue;
        }
        separate();
        put(entry->key);
        _text += ':';
        _text += ' ';
        std::visit([this](const auto& value) { put(value); }, entry->value);
        if (_open.size() > depth) {
            return;  // `members` may have moved
        }
    }
    _open.pop_back();
    end('}');
}

void JsonWriter::writeNext(Elements& elements) {
    if (elements.next != elements.end) {
        separate();
        return put(*elements.next++);
    }
    _open.pop_back();
    end(']');
}

bool JsonWriter::hasCutNames(const Dictionary& record) {
    const Dictionary::Block* block = record._blocks.get();
    for (; block != nullptr; block = block->_next) {
        for (unsigned int place = 0; place < block->count(); ++place) {
            if ((*block)[place].key.find('\0') != std::string::npos) {
                return true;
            }
        }
    }
    return false;
}

JsonWriter::Names JsonWriter::namesOf(const Dictionary& record) {
    Names names;
    Dictionary::Entries::Walk walk(record);
    while (const Dictionary::Entry* const entry = walk.next()) {
        if (isCarried(*entry)) {
            SameName& same = names[entry->key.c_str()];
            same = {same.first != nullptr ? same.first : entry, entry};
        }
    }
    return names;
}

void JsonWriter::put(const Dictionary& value) {
    begin('{');
    _open.emplace_back(Members{Dictionary::Entries::Walk(value), nullptr});
    if (hasCutNames(value)) {
        std::get<Members>(_open.back()).names = std::make_unique<Names>(namesOf(value));
    }
}

void JsonWriter::put(const std::vector<Dictionary>& values) {
    begin('[');
    _open.emplace_back(Elements{values.data(), values.data() + values.size()});
}

template <class Value>
void JsonWriter::put(const std::vector<Value>& values) {
    begin('[');
    for (const auto& value : values) {
        if (fitsJson(value)) {
            separate();
            put(value);
        }
    }
    end(']');
}

void JsonWriter::put(long long value) {
    char digits[16];
    const auto low = static_cast<std::int32_t>(static_cast<std::uint32_t>(value));
    _text.append(digits, std::to_chars(digits, digits + sizeof(digits), low).ptr);
}

void JsonWriter::put(bool value) {
    value ? _text.append("true", 4) : _text.append("false", 5);
}

/// Adds a fraction to what would look like an integer, and removes '+' and leading zeros from
/// exponents.
void JsonWriter::put(long double value) {
    char decimal[kDecimalSize];
    char* end = writeShort(static_cast<double>(value), decimal);
    if (end == nullptr) {
        end = writeDecimal(static_cast<double>(value), decimal);
    }
    char* const e = std::find(decimal, end, 'e');
    if (e != end) {
        const auto isDropped = [](char byte) { return byte == '+' || byte == '-' || byte == '0'; };
        const char* const digits = std::find_if_not(e + 1, end, isDropped);
        end = std::copy(digits, static_cast<const char*>(end), e[1] == '-' ? e + 2 : e + 1);
    } else if (std::find(decimal, end, '.') == end) {
        *end++ = '.';
        *end++ = '0';
    }
    _text.append(decimal, end);
}

/// Writes UTF-8 up to its first NUL.
void JsonWriter::put(const std::string& value) {
    const char* const limit = value.c_str() + value.size();
    const char* written = value.c_str();
    _text += '"';
    for (const char* next = plainEnd(written, limit);; next = plainEnd(next + 1, limit)) {
        if (!isAscii(*next)) {
            continue;
        }
        _text.append(written, next);
        if (*next == '\0') {
            break;
        }
        appendEscape(_text, *next);
        written = next + 1;
    }
    _text += '"';
}

/// Writes a comma unless an object or array has just begun.
void JsonWriter::separate() {
    if (_text.back() != '{' && _text.back() != '[') {
        _text += ',';
        _text += ' ';
    }
}

void JsonWriter::begin(char bracket) {
    _isTooDeep = _level > kMaxLevels;
    ++_level;
    _text += bracket;
}

void JsonWriter::end(char bracket) {
    --_level;
    const bool isEmpty = _text.back() == '{' || _text.back() == '[';
    _isTooDeep = _isTooDeep || (_level == kMaxLevels && !isEmpty);
    _text += bracket;
}

}  // namespace NIVUR
