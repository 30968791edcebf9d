#ifndef NIVUR_PRIVATE_DICTIONARY_MAPS_H
#define NIVUR_PRIVATE_DICTIONARY_MAPS_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "dictionary.h"

namespace NIVUR {

/// What a Dictionary holds. Invariant: a key is in at most one of the maps.
struct Dictionary::Maps {
    template <class Value, ValueType kTag>
    struct Map : std::map<std::string, Value> {
        static constexpr ValueType kType = kTag;
        static constexpr bool kNests = kTag == TYPE_OBJECT || kTag == TYPE_OBJECT_ARRAY;
    };

    Map<std::string, TYPE_STRING> _stringDictionary;
    Map<long long, TYPE_INTEGER> _integerDictionary;
    Map<long double, TYPE_DECIMAL> _decimalDictionary;
    Map<bool, TYPE_BOOLEAN> _booleanDictionary;
    Map<Dictionary, TYPE_OBJECT> _objectDictionary;
    Map<std::vector<std::string>, TYPE_STRING_ARRAY> _stringArrayDictionary;
    Map<std::vector<long long>, TYPE_INTEGER_ARRAY> _integerArrayDictionary;
    Map<std::vector<long double>, TYPE_DECIMAL_ARRAY> _decimalArrayDictionary;
    Map<std::vector<bool>, TYPE_BOOLEAN_ARRAY> _booleanArrayDictionary;
    Map<std::vector<Dictionary>, TYPE_OBJECT_ARRAY> _objectArrayDictionary;

    std::unique_ptr<Maps> _next;  // links what is about to be destroyed

    Maps() = default;
    Maps(const Maps&) = delete;
    Maps& operator=(const Maps&) = delete;
    ~Maps();

    /// Moves what the nested records hold to the front of `list`.
    void unlinkNested(std::unique_ptr<Maps>& list);

    /// Calls visit(&Maps::member) for each map in the order of their declaration.
    template <class Visitor>
    static void each(Visitor visit) {
        visit(&Maps::_stringDictionary);
        visit(&Maps::_integerDictionary);
        visit(&Maps::_decimalDictionary);
        visit(&Maps::_booleanDictionary);
        visit(&Maps::_objectDictionary);
        visit(&Maps::_stringArrayDictionary);
        visit(&Maps::_integerArrayDictionary);
        visit(&Maps::_decimalArrayDictionary);
        visit(&Maps::_booleanArrayDictionary);
        visit(&Maps::_objectArrayDictionary);
    }
};

/// Calls visit(map) for each map in the order of their declaration; not at all if none was made.
template <class Visitor>
void Dictionary::eachMap(Visitor visit) const {
    if (_maps) {
        const Maps& maps = *_maps;
        Maps::each([&](auto map) { visit(maps.*map); });
    }
}

}  // namespace NIVUR

#endif
