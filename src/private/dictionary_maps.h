#ifndef NIVUR_PRIVATE_DICTIONARY_MAPS_H
#define NIVUR_PRIVATE_DICTIONARY_MAPS_H

#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "dictionary.h"

namespace NIVUR {

/// The values of one type by their keys.
template <class Value, Dictionary::ValueType kTag>
struct Dictionary::TypedMap : std::map<std::string, Value> {
    static constexpr ValueType kType = kTag;
    static constexpr bool kNests = kTag == TYPE_OBJECT || kTag == TYPE_OBJECT_ARRAY;
};

/// The arrays of a Dictionary, apart from the rest since most records have none.
struct Dictionary::ArrayMaps {
    TypedMap<std::vector<std::string>, TYPE_STRING_ARRAY> _stringArrayDictionary;
    TypedMap<std::vector<long long>, TYPE_INTEGER_ARRAY> _integerArrayDictionary;
    TypedMap<std::vector<long double>, TYPE_DECIMAL_ARRAY> _decimalArrayDictionary;
    TypedMap<std::vector<bool>, TYPE_BOOLEAN_ARRAY> _booleanArrayDictionary;
    TypedMap<std::vector<Dictionary>, TYPE_OBJECT_ARRAY> _objectArrayDictionary;

    /// Calls visit(&ArrayMaps::member) for each map in the order of their declaration.
    template <class Visitor>
    static void each(Visitor visit) {
        visit(&ArrayMaps::_stringArrayDictionary);
        visit(&ArrayMaps::_integerArrayDictionary);
        visit(&ArrayMaps::_decimalArrayDictionary);
        visit(&ArrayMaps::_booleanArrayDictionary);
        visit(&ArrayMaps::_objectArrayDictionary);
    }
};

/// What a Dictionary holds. Invariant: a key is in at most one of the maps.
struct Dictionary::Maps {
    TypedMap<std::string, TYPE_STRING> _stringDictionary;
    TypedMap<long long, TYPE_INTEGER> _integerDictionary;
    TypedMap<long double, TYPE_DECIMAL> _decimalDictionary;
    TypedMap<bool, TYPE_BOOLEAN> _booleanDictionary;
    TypedMap<Dictionary, TYPE_OBJECT> _objectDictionary;
    std::unique_ptr<ArrayMaps> _arrays;  // null when no array was stored yet

    Maps* _next = nullptr;  // links what is about to be destroyed

    /// Moves what the nested records hold to the front of `list`.
    void unlinkNested(Maps*& list);

    /// Calls visit(&Maps::member) for each map here, in the order of their declaration.
    template <class Visitor>
    static void each(Visitor visit) {
        visit(&Maps::_stringDictionary);
        visit(&Maps::_integerDictionary);
        visit(&Maps::_decimalDictionary);
        visit(&Maps::_booleanDictionary);
        visit(&Maps::_objectDictionary);
    }
};

/// The maps of a group, Maps or ArrayMaps; null if none of them was needed yet.
template <class Group>
Group* Dictionary::find() const {
    if constexpr (std::is_same_v<Group, Maps>) {
        return _maps.get();
    } else {
        return _maps ? _maps->_arrays.get() : nullptr;
    }
}

/// The maps of a group, made if need be.
template <class Group>
Group& Dictionary::make() {
    if (!_maps) {
        _maps.reset(new Maps());
    }
    if constexpr (std::is_same_v<Group, Maps>) {
        return *_maps;
    } else {
        if (!_maps->_arrays) {
            _maps->_arrays = std::make_unique<ArrayMaps>();
        }
        return *_maps->_arrays;
    }
}

/// Calls visit(map) for each map that was made, in the order of allKeys().
template <class Visitor>
void Dictionary::eachMap(Visitor visit) const {
    if (auto* const maps = find<Maps>()) {
        Maps::each([&](auto map) { visit(maps->*map); });
    }
    if (auto* const arrays = find<ArrayMaps>()) {
        ArrayMaps::each([&](auto map) { visit(arrays->*map); });
    }
}

}  // namespace NIVUR

#endif
