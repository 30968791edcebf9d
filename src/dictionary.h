#ifndef NIVUR_DICTIONARY_H
#define NIVUR_DICTIONARY_H

#include <memory>
#include <string>
#include <vector>

#include "export.h"

namespace NIVUR {

/// A typed record: each key, which may be any byte string, holds one value of one of ten types. The
/// record owns its values: copies are deep, setters store a copy, and getters return one, so that
/// reading an array or a nested record costs a full copy. Copying and destroying records needs
/// constant stack, however deep they are nested. If memory is exhausted, std::bad_alloc is thrown
/// and the record is unchanged. Threads may read one record concurrently while none changes it;
/// distinct records share nothing.
class NIVUR_EXPORT Dictionary {
  public:
    /// The type of a value. The numbers are part of the interface; an array type is its element
    /// type plus 5.
    enum ValueType {
        TYPE_NONE = 0,
        TYPE_INTEGER = 1,
        TYPE_STRING = 2,
        TYPE_DECIMAL = 3,
        TYPE_BOOLEAN = 4,
        TYPE_OBJECT = 5,
        TYPE_INTEGER_ARRAY = 6,
        TYPE_STRING_ARRAY = 7,
        TYPE_DECIMAL_ARRAY = 8,
        TYPE_BOOLEAN_ARRAY = 9,
        TYPE_OBJECT_ARRAY = 10
    };

    /// An empty record.
    Dictionary() noexcept;
    /// A deep copy.
    Dictionary(const Dictionary& other);
    /// Leaves `other` empty.
    Dictionary(Dictionary&& other) noexcept;
    /// Replaces the values by a deep copy. The copy is complete before the old values are deleted.
    Dictionary& operator=(const Dictionary& other);
    /// Leaves `other` empty, unless it is this record.
    Dictionary& operator=(Dictionary&& other) noexcept;
    virtual ~Dictionary();

    /// The number of keys.
    unsigned int size() const;

    /// Returns true if the key holds a value of any type.
    bool hasKey(const std::string& key) const;

    /// The type of the key's value; TYPE_NONE when there is no such key.
    ValueType getType(const std::string& key) const;

    /// All keys, grouped by the types of their values: strings, integers, decimals, booleans,
    /// objects, then the arrays in the same order. Within each group the keys are ordered byte by
    /// byte.
    std::vector<std::string> allKeys() const;

    /// Removes the key, if it exists.
    void erase(const std::string& key);

    /// Removes every key.
    void clear();

    ///@{
    /// Returns a copy of the key's value. If the key does not exist or its value has another type,
    /// the result is 0, false, or an empty string, record or array: nothing is converted.
    std::string getString(const std::string& key) const;
    long long getInteger(const std::string& key) const;
    long double getDecimal(const std::string& key) const;
    bool getBoolean(const std::string& key) const;
    Dictionary getObject(const std::string& key) const;
    std::vector<std::string> getStringArray(const std::string& key) const;
    std::vector<long long> getIntegerArray(const std::string& key) const;
    std::vector<long double> getDecimalArray(const std::string& key) const;
    std::vector<bool> getBooleanArray(const std::string& key) const;
    std::vector<Dictionary> getObjectArray(const std::string& key) const;
    ///@}

    ///@{
    /// Stores a copy under the key and replaces any earlier value, whatever its type. A record may
    /// be stored into itself.
    void setString(const std::string& key, const std::string& value);
    void setInteger(const std::string& key, long long value);
    void setDecimal(const std::string& key, long double value);
    void setBoolean(const std::string& key, bool value);
    void setObject(const std::string& key, const Dictionary& value);
    void setStringArray(const std::string& key, const std::vector<std::string>& value);
    void setIntegerArray(const std::string& key, const std::vector<long long>& value);
    void setDecimalArray(const std::string& key, const std::vector<long double>& value);
    void setBooleanArray(const std::string& key, const std::vector<bool>& value);
    void setObjectArray(const std::string& key, const std::vector<Dictionary>& value);
    ///@}

  private:
    friend class JsonReader;
    friend class JsonWriter;
    struct Entry;
    class Block;
    class Entries;
    struct Drop {
        void operator()(Block* blocks) const noexcept;
    };
    using Blocks = std::unique_ptr<Block, Drop>;

    Blocks _blocks;  // the first of a chain; if null, the record is empty
};

}  // namespace NIVUR

#endif
