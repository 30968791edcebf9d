#include "dictionary.h"

#include <cstddef>
#include <type_traits>
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
void Dictionary::Drop::operator()(Maps* maps) const noexcept {
    while (maps != nullptr) {
        const std::unique_ptr<Maps> current(maps);
        maps = maps->_next;
        current->unlinkNested(maps);
    }
}

void Dictionary::Maps::unlinkNested(Maps*& list) {
    const auto unlink = [&list](Dictionary& nested) {
        if (nested._maps) {
            nested._maps->_next = list;
            list = nested._maps.release();
        }
    };
    for (auto& member : _objectDictionary) {
        unlink(member.second);
    }
    if (!_arrays) {
        return;
    }
    for (auto& member : _arrays->_objectArrayDictionary) {
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
    const auto copyGroup = [&pending](const auto* from, Dictionary& to) {
        using Group = std::remove_cv_t<std::remove_pointer_t<decltype(from)>>;
        if (from != nullptr) {
            Group& group = to.make<Group>();
            Group::each([&](auto map) { copyMap(from->*map, group.*map, pending); });
        }
    };
    const auto copyOne = [&copyGroup](const Dictionary& from, Dictionary& to) {
        copyGroup(from.find<Maps>(), to);
        copyGroup(from.find<ArrayMaps>(), to);
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
    eachMap([&](auto& map) {
        if (&map != exceptIn && !map.empty()) {
            map.erase(key);
        }
    });
}

template <class Group, class Map>
typename Map::mapped_type Dictionary::valueOf(Map Group::*map, const std::string& key) const {
    const Group* const group = find<Group>();
    if (group == nullptr) {
        return {};
    }
    const Map& values = group->*map;
    const auto found = values.find(key);
    return found != values.end() ? found->second : typename Map::mapped_type();
}

template <class Group, class Map>
void Dictionary::store(Map Group::*map, const std::string& key, typename Map::mapped_type value) {
    Map& values = make<Group>().*map;
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
    return valueOf(&ArrayMaps::_stringArrayDictionary, key);
}

std::vector<long long> Dictionary::getIntegerArray(const std::string& key) const {
    return valueOf(&ArrayMaps::_integerArrayDictionary, key);
}

std::vector<long double> Dictionary::getDecimalArray(const std::string& key) const {
    return valueOf(&ArrayMaps::_decimalArrayDictionary, key);
}

std::vector<bool> Dictionary::getBooleanArray(const std::string& key) const {
    return valueOf(&ArrayMaps::_booleanArrayDictionary, key);
}

std::vector<Dictionary> Dictionary::getObjectArray(const std::string& key) const {
    return valueOf(&ArrayMaps::_objectArrayDictionary, key);
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
    store(&ArrayMaps::_stringArrayDictionary, key, value);
}

void Dictionary::setIntegerArray(const std::string& key, const std::vector<long long>& value) {
    store(&ArrayMaps::_integerArrayDictionary, key, value);
}

void Dictionary::setDecimalArray(const std::string& key, const std::vector<long double>& value) {
    store(&ArrayMaps::_decimalArrayDictionary, key, value);
}

void Dictionary::setBooleanArray(const std::string& key, const std::vector<bool>& value) {
    store(&ArrayMaps::_booleanArrayDictionary, key, value);
}

void Dictionary::setObjectArray(const std::string& key, const std::vector<Dictionary>& value) {
    store(&ArrayMaps::_objectArrayDictionary, key, value);
}

}  // namespace NIVUR
