#ifndef NIVUR_PRIVATE_JSON_READER_H
#define NIVUR_PRIVATE_JSON_READER_H

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "dictionary.h"
#include "private/json_scanner.h"

namespace NIVUR {

/// Reads JSON text into records. Each value is stored directly where it stays, without a tree in
/// between: a text of 1 KB takes 3.8 us, where jansson takes 23 us (docs/performance.md, "read,
/// flat, 989 B"). A list holds the objects and arrays that are still open, so that nesting costs no
/// stack:
///
///     {"a": [ {"b": ...     _levels: [ Members of the record ]
///                                    [ Elements of "a" ]
///                                    [ Members of the last element ]
///
/// A level has the token that ends it and a target, which says where its values go. An array is
/// Undecided until its first element, which decides its type. Values that are not stored are read
/// and dropped. Not thread-safe; one reader reads one text.
class JsonReader {
  public:
    /// `text` must outlive the reader.
    explicit JsonReader(const std::string& text) : _scanner(text) {}

    /// Reads an object into `record`, which is empty; the contents of an array are dropped. Returns
    /// false if the text is refused. The record may then have part of the values, as after
    /// std::bad_alloc.
    bool read(Dictionary& record);

    /// Reads each element of an array into a record of its own; the contents of an object are
    /// dropped.
    bool read(std::vector<Dictionary>& records);

    /// The reason why the text was refused, at most 95 bytes; "" if it was not.
    const char* error() const { return _scanner.error(); }

  private:
    using Token = JsonScanner::Token;

    // Where the values of an object or array go.
    struct Dropped {};
    struct Members {
        Dictionary* record;
    };
    struct Undecided {  // an array before its first element, which decides its type
        Dictionary* record;
    };
    struct Records {  // the outermost array, whose elements are all records
        std::vector<Dictionary>* all;
    };
    template <class Value>
    struct Elements {
        std::vector<Value>* values;
    };
    using Target = std::variant<Dropped, Members, Undecided, Records, Elements<Dictionary>,
                                Elements<std::string>, Elements<long long>, Elements<long double>,
                                Elements<bool>>;

    struct Level {
        Level(Token token, Target contents) : end(token), target(contents) {}
        Token end;
        Target target;
    };

    bool readText(Target object, Target array);
    bool readItem(Token token);
    bool readKey(Token& token);
    bool readValue(Token token);
    bool refuse(const char* message);

    template <class Value>
    Target addArray(Dictionary& record);
    Target decide(Dictionary& record, Token token);

    // store() stores a scalar in the target of the enclosing object or array; open() returns the
    // target of a nested object or array.
    void store(Dropped /*target*/, Token /*token*/) {}
    void store(Members target, Token token);
    void store(Undecided /*target*/, Token /*token*/) {}
    void store(Records target, Token token);
    template <class Value>
    void store(Elements<Value> target, Token token);
    Target open(Members target, Token token);
    Target open(Records target, Token token);
    Target open(Elements<Dictionary> target, Token token);
    template <class Other>
    Target open(Other /*target*/, Token /*token*/) {
        return Dropped();
    }

    // Ends an object or array. Too much memory may have been reserved for an array, since
    // elementsAhead() also counts elements of other types.
    template <class Value>
    static void close(Elements<Value> target) {
        if (target.values->size() < target.values->capacity() / 2) {
            target.values->shrink_to_fit();
        }
    }
    template <class Other>
    static void close(Other /*target*/) {}

    JsonScanner _scanner;
    std::vector<Level> _levels;
    std::string_view _key;    // of the member that is being read
    std::string _unescaped;   // the key, if it has escapes
    bool _isOpening = false;  // nothing was read since the innermost object or array began
};

}  // namespace NIVUR

#endif
