#ifndef NIVUR_SERIALIZATION_H
#define NIVUR_SERIALIZATION_H

#include <string>
#include <vector>

#include "dictionary.h"
#include "export.h"

namespace NIVUR {

/// Turns records into JSON text and back. It holds no state: any thread may call any operation at
/// any time, with a record that no other thread changes meanwhile. Either direction takes time in
/// proportion to the document, and carries at most 2,047 levels of objects and arrays, in a stack
/// of a few KB. Which texts are JSON, the messages about those that are not, and the bytes that are
/// written are those of jansson 2.14 in the C locale, whatever the program's locale is. Exhausted
/// memory is reported by the results and an error line.
class NIVUR_EXPORT Serialization {
  public:
    Serialization() = delete;

    /// The record as one line of JSON, its members in no particular order. Integers are cut to
    /// their low 32 bits, as a signed number. What JSON cannot carry is left out: decimals that are
    /// no finite double, and strings and keys that are not UTF-8, which end at their first NUL.
    /// "", with an error line, when the whole text could not be produced: the nesting was too deep,
    /// or memory ran out.
    static std::string serialize(const Dictionary& dictionary);

    /// An array of records, each as serialize() writes it.
    static std::string serializeArray(const std::vector<Dictionary>& dictionaries);

    /// The record that a JSON object describes; an empty one for an array, and, with an error line,
    /// for text that is not JSON. One integer beyond 64 bits, one number beyond a double (1e999) or
    /// one `\u0000` makes the whole text unreadable.
    ///
    /// Integers are confined to 32 bits. The first element of an array decides its type (elements
    /// of other types are dropped), and its integers pass through double. Nulls, empty arrays,
    /// arrays of arrays and arrays that begin with null are not stored. Of equal keys the last
    /// counts, also when its value is not stored. When memory runs out the text counts as
    /// unreadable.
    static Dictionary deserialize(const std::string& text);

    /// The records that a JSON array describes, each as deserialize() reads it, with an empty one
    /// for every other element. Nothing for an object, and, with an error line, for text that is
    /// not JSON.
    static std::vector<Dictionary> deserializeArray(const std::string& text);
};

}  // namespace NIVUR

#endif
