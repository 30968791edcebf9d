#ifndef NIVUR_PRIVATE_JSON_WRITER_H
#define NIVUR_PRIVATE_JSON_WRITER_H

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "dictionary.h"
#include "private/dictionary_entries.h"

namespace NIVUR {

/// Writes records as JSON text. A list holds the objects and the arrays of objects that are still
/// open, so that nesting costs no stack. Not thread-safe; one writer writes one text.
class JsonWriter {
  public:
    static constexpr unsigned int kMaxLevels = 2047;  ///< an empty one may be a level deeper

    ///@{
    /// Returns one line of text without what JSON cannot represent; "" if it is nested too deep.
    std::string write(const Dictionary& record);
    std::string write(const std::vector<Dictionary>& records);
    ///@}

    bool isTooDeep() const { return _isTooDeep; }

  private:
    /// Members whose keys are equal up to their first NUL, where JSON names end. They are written
    /// once: in the place of the first, with the value of the last.
    struct SameName {
        const Dictionary::Entry* first = nullptr;
        const Dictionary::Entry* last = nullptr;
    };
    using Names = std::map<std::string_view, SameName>;

    // What is still to be written of an object or an array.
    struct Members {
        Dictionary::Entries::Walk rest;
        std::unique_ptr<Names> names;  // null if no key has a NUL
    };
    struct Elements {
        const Dictionary* next;
        const Dictionary* end;
    };

    std::string finish();
    void writeNext(Members& members);
    void writeNext(Elements& elements);
    static bool isCarried(const Dictionary::Entry& entry);
    static const Dictionary::Entry* writtenAt(const Dictionary::Entry& entry, const Names* names);
    static bool hasCutNames(const Dictionary& record);
    static Names namesOf(const Dictionary& record);

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
