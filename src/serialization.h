#ifndef NIVUR_SERIALIZATION_H
#define NIVUR_SERIALIZATION_H

#include <string>
#include <vector>

#include "dictionary.h"
#include "export.h"

namespace NIVUR {

/// Converts records to JSON text and back. Any thread may call any operation at any time, with a
/// record that no other thread changes meanwhile. Both directions take time in proportion to the
/// document and accept at most 2,047 levels of nested objects and arrays, in a few KB of stack. The
/// accepted texts, the error messages and the written bytes are those of jansson 2.14 in the C
/// locale, whatever locale the program has set. Exhausted memory is reported by the result and an
/// error line.
class NIVUR_EXPORT Serialization {
  public:
    Serialization() = delete;

    /// Returns the record as one line of JSON, with its members in no particular order. Integers
    /// are cut to their low 32 bits, as a signed number. Decimals that are no finite double, and
    /// strings and keys that are not UTF-8, are left out; strings and keys end at their first NUL.
    /// Returns "", with an error line, if the record is nested too deep or memory is exhausted.
    static std::string serialize(const Dictionary& dictionary);

    /// Returns an array of records, each written as by serialize().
    static std::string serializeArray(const std::vector<Dictionary>& dictionaries);

    /// Returns the record that a JSON object describes; an empty record for an array, and, with an
    /// error line, for text that is not JSON. One integer beyond 64 bits, one number beyond the
    /// range of double (1e999) or one `\u0000` makes the whole text invalid.
    ///
    /// Integers are clamped to 32 bits. The first element of an array decides its type: elements of
    /// other types are dropped, and integers pass through double. Nulls, empty arrays, arrays of
    /// arrays and arrays that begin with null are not stored. Of equal keys the last counts, even
    /// if its value is not stored. If memory is exhausted, the text counts as invalid.
    static Dictionary deserialize(const std::string& text);

    /// Returns the records that a JSON array describes, each read as by deserialize(), with an
    /// empty record for every element that is no object. Returns no records for an object, and,
    /// with an error line, for text that is not JSON.
    static std::vector<Dictionary> deserializeArray(const std::string& text);
};

}  // namespace NIVUR

#endif
