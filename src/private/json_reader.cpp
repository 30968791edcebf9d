#include "private/json_reader.h"

#include <algorithm>
#include <limits>
#include <type_traits>
#include <utility>

#include "private/dictionary_entries.h"

namespace NIVUR {

namespace {

constexpr std::size_t kMostOpen = 2048;  // levels of nested values, the limit of jansson

std::int32_t to32Bits(long long value) {
    using Limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(std::clamp<long long>(value, Limits::min(), Limits::max()));
}

/// Converts an integer to double and back; what rounds to 2^63 becomes the maximum.
long long throughDouble(long long value) {
    using Limits = std::numeric_limits<long long>;
    const auto asDouble = static_cast<double>(value);
    return asDouble >= -static_cast<double>(Limits::min()) ? Limits::max()
                                                           : static_cast<long long>(asDouble);
}

}  // namespace

bool JsonReader::read(Dictionary& record) {
    return readText(Members{&record}, Dropped());
}

bool JsonReader::read(std::vector<Dictionary>& records) {
    return readText(Dropped(), Records{&records});
}

bool JsonReader::refuse(const char* message) {
    _scanner.refuse(message);
    return false;
}

bool JsonReader::readText(Target object, Target array) {
    const Token first = _scanner.next();
    if (first == Token::BEGIN_OBJECT) {
        _levels.emplace_back(Token::END_OBJECT, object);
    } else if (first == Token::BEGIN_ARRAY) {
        _levels.emplace_back(Token::END_ARRAY, array);
    } else {
        return refuse("'[' or '{' expected");
    }
    _isOpening = true;
    while (!_levels.empty()) {
        const Token token = _scanner.next();
        if (token == _levels.back().end) {
            std::visit([](auto to) { close(to); }, _levels.back().target);
            _levels.pop_back();
            _isOpening = false;
        } else if (!readItem(token)) {
            return false;
        }
    }
    if (_scanner.next() != Token::END) {
        return refuse("end of file expected");
    }
    return true;
}

/// Reads the next member or element. `token` is the first token after the previous one.
bool JsonReader::readItem(Token token) {
    const bool isMember = _levels.back().end == Token::END_OBJECT;
    if (!_isOpening) {
        if (token != Token::COMMA) {
            return refuse(isMember ? "'}' expected" : "']' expected");
        }
        token = _scanner.next();
    }
    if (isMember && !readKey(token)) {
        return false;
    }
    if (!isMember && token == Token::END) {
        return refuse("']' expected");
    }
    return readValue(token);
}

/// Reads the key in `token`, and sets `token` to the first one of its value.
bool JsonReader::readKey(Token& token) {
    if (token != Token::STRING) {
        return refuse("string or '}' expected");
    }
    const JsonString& key = _scanner.string();
    if (key.hasNul) {
        return refuse("NUL byte in object key not supported");
    }
    if (key.shrinkage == 0) {
        _key = {key.text, key.size};
    } else {
        _unescaped = key.value();
        _key = _unescaped;
    }
    if (_scanner.next() != Token::COLON) {
        return refuse("':' expected");
    }
    token = _scanner.next();
    return true;
}

bool JsonReader::readValue(Token token) {
    if (_levels.size() >= kMostOpen) {
        return refuse("maximum parsing depth reached");
    }
    Target& target = _levels.back().target;
    if (const auto* const undecided = std::get_if<Undecided>(&target)) {
        target = decide(*undecided->record, token);
    }
    _isOpening = token == Token::BEGIN_OBJECT || token == Token::BEGIN_ARRAY;
    switch (token) {
        case Token::BEGIN_OBJECT:
        case Token::BEGIN_ARRAY: {
            const Token end = token == Token::BEGIN_OBJECT ? Token::END_OBJECT : Token::END_ARRAY;
            _levels.emplace_back(
                end, std::visit([&](auto to) -> Target { return open(to, token); }, target));
            return true;
        }
        case Token::STRING:
            if (_scanner.string().hasNul) {
                return refuse("\\u0000 is not allowed without JSON_ALLOW_NUL");
            }
            [[fallthrough]];
        case Token::INTEGER:
        case Token::REAL:
        case Token::TRUE:
        case Token::FALSE:
        case Token::NONE:
            std::visit([&](auto to) { store(to, token); }, target);
            return true;
        case Token::INVALID:
            return refuse("invalid token");
        default:
            return refuse("unexpected token");
    }
}

template <class Value>
JsonReader::Target JsonReader::addArray(Dictionary& record) {
    auto& values = Dictionary::Entries(record).put(_key, std::vector<Value>());
    if constexpr (!std::is_same_v<Value, Dictionary>) {
        values.reserve(_scanner.elementsAhead());  // growing would take three times the memory
    }
    return Elements<Value>{&values};
}

/// Adds the array whose first element is `token`, unless that is null or an array, and returns the
/// target of its elements.
JsonReader::Target JsonReader::decide(Dictionary& record, Token token) {
    switch (token) {
        case Token::BEGIN_OBJECT:
            return addArray<Dictionary>(record);
        case Token::STRING:
            return addArray<std::string>(record);
        case Token::INTEGER:
            return addArray<long long>(record);
        case Token::REAL:
            return addArray<long double>(record);
        case Token::TRUE:
        case Token::FALSE:
            return addArray<bool>(record);
        default:
            return Dropped();
    }
}

void JsonReader::store(Members target, Token token) {
    Dictionary::Entries entries(*target.record);
    switch (token) {
        case Token::STRING:
            entries.put(_key, _scanner.string().value());
            break;
        case Token::INTEGER:
            entries.put<long long>(_key, to32Bits(_scanner.integer()));
            break;
        case Token::REAL:
            entries.put<long double>(_key, _scanner.real());
            break;
        case Token::TRUE:
        case Token::FALSE:
            entries.put(_key, token == Token::TRUE);
            break;
        default:
            entries.erase(_key);
            break;
    }
}

void JsonReader::store(Records target, Token /*token*/) {
    target.all->emplace_back();
}

template <class Value>
void JsonReader::store(Elements<Value> target, Token token) {
    if constexpr (std::is_same_v<Value, std::string>) {
        if (token == Token::STRING) {
            target.values->push_back(_scanner.string().value());
        }
    } else if constexpr (std::is_same_v<Value, long long>) {
        if (token == Token::INTEGER) {
            target.values->push_back(throughDouble(_scanner.integer()));
        }
    } else if constexpr (std::is_same_v<Value, long double>) {
        if (token == Token::REAL) {
            target.values->push_back(_scanner.real());
        }
    } else if constexpr (std::is_same_v<Value, bool>) {
        if (token == Token::TRUE || token == Token::FALSE) {
            target.values->push_back(token == Token::TRUE);
        }
    }
}

JsonReader::Target JsonReader::open(Members target, Token token) {
    Dictionary::Entries entries(*target.record);
    if (token == Token::BEGIN_ARRAY) {
        entries.erase(_key);  // the last of equal names counts, also when it is dropped
        return Undecided{target.record};
    }
    return Members{&entries.put(_key, Dictionary())};
}

JsonReader::Target JsonReader::open(Records target, Token token) {
    Dictionary& record = target.all->emplace_back();
    return token == Token::BEGIN_OBJECT ? Target(Members{&record}) : Dropped();
}

JsonReader::Target JsonReader::open(Elements<Dictionary> target, Token token) {
    if (token == Token::BEGIN_ARRAY) {
        return Dropped();
    }
    return Members{&target.values->emplace_back()};
}

}  // namespace NIVUR
