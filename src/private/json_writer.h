#ifndef NIVUR_PRIVATE_JSON_WRITER_H
#define NIVUR_PRIVATE_JSON_WRITER_H

#include <string>
#include <variant>
#include <vector>

#include "dictionary.h"
#include "private/dictionary_maps.h"

namespace NIVUR {

/// Writes records as JSON text. It keeps a list of the objects and arrays of objects that are open,
/// so that nesting costs no stack. Not thread-safe; one writer writes one text.
class JsonWriter {
  public:
    static constexpr unsigned int kMaxLevels = 2047;  ///< and an empty object or array within them

    ///@{
    /// Writes one line without what JSON cannot carry; "" if it is nested too deep.
    std::string write(const Dictionary& record);
    std::string write(const std::vector<Dictionary>& records);
    ///@}

    bool isTooDeep() const { return _isTooDeep; }

  private:
    using Maps = Dictionary::Maps;
    using ArrayMaps = Dictionary::ArrayMaps;

    // What is left to be written of an object or an array.
    struct Members {
        const Maps* maps;  // null if there are none
        decltype(Maps::_objectDictionary)::const_iterator object{};
        decltype(ArrayMaps::_objectArrayDictionary)::const_iterator array{};
        bool hasArrays = false;           // the arrays have been reached
        const Dictionary* cut = nullptr;  // the record, if any of its keys has a NUL
    };
    struct Elements {
        const Dictionary* next;
        const Dictionary* end;
    };

    std::string finish();
    void writeNext(Members& members);
    void writeNext(Elements& elements);
    template <class Map>
    void writeMembers(const Map& members);
    template <class Value>
    void writeMember(const std::string& key, const Value& value);

    static const Dictionary* withCutKeys(const Dictionary& record);
    static bool isReplaced(const Dictionary& record, const std::string& key, const void* value);

    // Writes a value, or the beginning of one that may nest.
    void put(const std::string& value);
    void put(long long value);
    void put(long double value);
    void put(bool value);
    template <class Value>
    void put(const std::vector<Value>& values);
    void put(const Dictionary& value);
    void put(const std::vector<Dictionary>& values);

    void separate();
    void begin(char bracket);
    void end(char bracket);

    std::string _text;
    std::vector<std::variant<Members, Elements>> _open;
    unsigned int _level = 0;  // objects and arrays that are open
    bool _isTooDeep = false;
};

}  // namespace NIVUR

#endif
