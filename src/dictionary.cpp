#include "dictionary.h"

#include <cstddef>
#include <utility>

#include "private/dictionary_maps.h"

namespace NIVUR {

namespace {

/// Nested records that are yet to be copied, and where to.
using Pending = std::vector<std::pair<const Dictionary*, Dictionary*>>;

void copyValue(const Dictionary& from, Dictionary& to, Pending& pending) {
    pending.emplace_back(&from, &to);
}

void copyValue(const std::vector<Dictionary>& from, std::vector<Dictionary>& to, Pending& pending) {
    to.resize(from.size());
    for (std::size_t i = 0; i < from.size(); ++i) {
        copyValue(from[i], to[i], pending);
    }
}

template <class Map>
void copyMap(const Map& from, Map& to, Pending& pending) {
    if constexpr (Map::kNests) {
        for (const auto& [key, value] : from) {
            auto& copy = to.emplace_hint(to.end(), key, typename Map::mapped_type())->second;
            copyValue(value, copy, pending);
        }
    } else {
        to = from;
    }
}

}  // namespace

// Nested records are destroyed one after the other, not each inside its parent's destructor: the
// depth of nesting would cost stack, and has no limit.
Dictionary::Maps::~Maps() {
    std::unique_ptr<Maps> pending;
    unlinkNested(pending);
    while (pending) {
        const std::unique_ptr<Maps> current = std::move(pending);
        pending = std::move(current->_next);
        current->unlinkNested(pending);
    }
}

void Dictionary::Maps::unlinkNested(std::unique_ptr<Maps>& list) {
    const auto unlink = [&list](Dictionary& nested) {
        if (nested._maps) {
            nested._maps->_next = std::move(list);
            list = std::move(nested._maps);
        }
    };
    for (auto& member : _objectDictionary) {
        unlink(member.second);
    }
    for (auto& member : _objectArrayDictionary) {
        for (Dictionary& nested : member.second) {
            unlink(nested);
        }
    }
}

Dictionary::Dictionary() noexcept = default;
Dictionary::Dictionary(Dictionary&& other) noexcept = default;
Dictionary& Dictionary::operator=(Dictionary&& other) noexcept = default;
Dictionary::~Dictionary() = default;

Dictionary::Dictionary(const Dictionary& other) {
    Pending pending;
    const auto copyOne = [&pending](const Dictionary& from, Dictionary& to) {
        if (from._maps) {
            to._maps = std::make_unique<Maps>();
            Maps::each(
                [&](auto map) { copyMap(from._maps.get()->*map, to._maps.get()->*map, pending); });
        }
    };
    copyOne(other, *this);
    while (!pending.empty()) {
        const auto [from, to] = pending.back();
        pending.pop_back();
        copyOne(*from, *to);
    }
}

Dictionary& Dictionary::operator=(const Dictionary& other) {
    return *this = Dictionary(other);
}

Dictionary::Maps& Dictionary::maps() {
    if (!_maps) {
        _maps = std::make_unique<Maps>();
    }
    return *_maps;
}

unsigned int Dictionary::size() const {
    std::size_t size = 0;
    eachMap([&](const auto& map) { size += map.size(); });
    return static_cast<unsigned int>(size);
}

bool Dictionary::hasKey(const std::string& key) const {
    return getType(key) != TYPE_NONE;
}

Dictionary::ValueType Dictionary::getType(const std::string& key) const {
    ValueType type = TYPE_NONE;
    eachMap([&](const auto& map) {
        if (type == TYPE_NONE && !map.empty() && map.find(key) != map.end()) {
            type = map.kType;
        }
    });
    return type;
}

std::vector<std::string> Dictionary::allKeys() const {
    std::vector<std::string> keys;
    keys.reserve(size());
    eachMap([&](const auto& map) {
        for (const auto& member : map) {
            keys.push_back(member.first);
        }
    });
    return keys;
}

void Dictionary::erase(const std::string& key) {
    eraseOriginalValue(key);
}

void Dictionary::clear() {
    _maps.reset();
}

void Dictionary::eraseOriginalValue(const std::string& key, const void* exceptIn) {
    if (!_maps) {
        return;
    }
    Maps& maps = *_maps;
    Maps::each([&](auto member) {
        auto& map = maps.*member;
        if (&map != exceptIn && !map.empty()) {
            map.erase(key);
        }
    });
}

template <class Map>
typename Map::mapped_type Dictionary::valueOf(Map Maps::*map, const std::string& key) const {
    if (!_maps) {
        return {};
    }
    const Map& values = _maps.get()->*map;
    const auto found = values.find(key);
    return found != values.end() ? found->second : typename Map::mapped_type();
}

template <class Map>
void Dictionary::store(Map Maps::*map, const std::string& key, typename Map::mapped_type value) {
    Map& values = maps().*map;
    const auto place = values.lower_bound(key);
    if (place != values.end() && place->first == key) {
        place->second = std::move(value);
        return;
    }
    values.emplace_hint(place, key, std::move(value));
    eraseOriginalValue(key, &values);  // last, so that exhausted memory leaves the record as it was
}

std::string Dictionary::getString(const std::string& key) const {
    return valueOf(&Maps::_stringDictionary, key);
}

long long Dictionary::getInteger(const std::string& key) const {
    return valueOf(&Maps::_integerDictionary, key);
}

long double Dictionary::getDecimal(const std::string& key) const {
    return valueOf(&Maps::_decimalDictionary, key);
}

bool Dictionary::getBoolean(const std::string& key) const {
    return valueOf(&Maps::_booleanDictionary, key);
}

Dictionary Dictionary::getObject(const std::string& key) const {
    return valueOf(&Maps::_objectDictionary, key);
}

std::vector<std::string> Dictionary::getStringArray(const std::string& key) const {
    return valueOf(&Maps::_stringArrayDictionary, key);
}

std::vector<long long> Dictionary::getIntegerArray(const std::string& key) const {
    return valueOf(&Maps::_integerArrayDictionary, key);
}

std::vector<long double> Dictionary::getDecimalArray(const std::string& key) const {
    return valueOf(&Maps::_decimalArrayDictionary, key);
}

std::vector<bool> Dictionary::getBooleanArray(const std::string& key) const {
    return valueOf(&Maps::_booleanArrayDictionary, key);
}

std::vector<Dictionary> Dictionary::getObjectArray(const std::string& key) const {
    return valueOf(&Maps::_objectArrayDictionary, key);
}

void Dictionary::setString(const std::string& key, const std::string& value) {
    store(&Maps::_stringDictionary, key, value);
}

void Dictionary::setInteger(const std::string& key, long long value) {
    store(&Maps::_integerDictionary, key, value);
}

void Dictionary::setDecimal(const std::string& key, long double value) {
    store(&Maps::_decimalDictionary, key, value);
}

void Dictionary::setBoolean(const std::string& key, bool value) {
    store(&Maps::_booleanDictionary, key, value);
}

void Dictionary::setObject(const std::string& key, const Dictionary& value) {
    store(&Maps::_objectDictionary, key, value);
}

void Dictionary::setStringArray(const std::string& key, const std::vector<std::string>& value) {
    store(&Maps::_stringArrayDictionary, key, value);
}

void Dictionary::setIntegerArray(const std::string& key, const std::vector<long long>& value) {
    store(&Maps::_integerArrayDictionary, key, value);
}

void Dictionary::setDecimalArray(const std::string& key, const std::vector<long double>& value) {
    store(&Maps::_decimalArrayDictionary, key, value);
}

void Dictionary::setBooleanArray(const std::string& key, const std::vector<bool>& value) {
    store(&Maps::_booleanArrayDictionary, key, value);
}

void Dictionary::setObjectArray(const std::string& key, const std::vector<Dictionary>& value) {
    store(&Maps::_objectArrayDictionary, key, value);
}

}  // namespace NIVUR
