#include "serialization.h"

#include <jansson.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "log.h"
#include "private/dictionary_maps.h"

namespace NIVUR {

namespace {

// As many as the parser reads, which also takes an empty container one level deeper. The JSON
// library's own limit when writing is the end of the stack.
constexpr unsigned int kMaxLevels = 2047;

struct Release {
    void operator()(json_t* tree) const { json_decref(tree); }
};
using Tree = std::unique_ptr<json_t, Release>;

/// The text of a tree as it grows.
struct Text {
    std::string text;
    bool failed = false;

    // The JSON library does not heed every failure of its own buffer: once memory has run out the
    // text is lost, whatever comes after.
    static int append(const char* bytes, std::size_t size, void* output) {
        auto* const that = static_cast<Text*>(output);
        try {
            that->text.append(bytes, that->failed ? 0 : size);
        } catch (const std::bad_alloc&) {
            that->failed = true;
        }
        return that->failed ? -1 : 0;
    }
};

/// A JSON number without its fraction, confined to the range of Integer.
template <class Integer>
Integer toInteger(const json_t* number) {
    using Limits = std::numeric_limits<Integer>;
    constexpr double kEnd = -static_cast<double>(Limits::min());  // exact, unlike that of max()
    const double value = json_number_value(number);
    if (value >= kEnd) {
        return Limits::max();
    }
    return value < -kEnd ? Limits::min() : static_cast<Integer>(value);
}

std::string toString(const json_t* string) {
    return json_string_value(string);
}

long double toDecimal(const json_t* real) {
    return json_real_value(real);
}

bool toBoolean(const json_t* boolean) {
    return json_is_true(boolean);
}

/// Whether the text is UTF-8 (RFC 3629): nothing overlong, no surrogates, nothing beyond U+10FFFF.
bool isUtf8(const char* text) {
    const auto* next = reinterpret_cast<const unsigned char*>(text);
    while (const unsigned int lead = *next++) {
        if (lead < 0x80) {
            continue;
        }
        const unsigned int least = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
        const unsigned int most = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
        if (lead < 0xC2 || lead > 0xF4 || *next < least || *next > most) {
            return false;
        }
        ++next;
        for (unsigned int more = (lead >= 0xE0 ? 1 : 0) + (lead >= 0xF0 ? 1 : 0); more > 0;
             --more) {
            if ((*next++ & 0xC0) != 0x80) {
                return false;
            }
        }
    }
    return true;
}

/// What JSON can carry.
template <class Value>
bool fitsJson(const Value& value) {
    if constexpr (std::is_same_v<Value, std::string>) {
        return isUtf8(value.c_str());
    } else if constexpr (std::is_same_v<Value, long double>) {
        return std::fabs(value) <= std::numeric_limits<double>::max();
    } else {
        return true;
    }
}

bool sameKind(const json_t* a, const json_t* b) {
    return json_typeof(a) == json_typeof(b) || (json_is_boolean(a) && json_is_boolean(b));
}

/// Those elements of an array that are of the first one's kind.
template <class Convert>
auto elements(json_t* array, Convert convert) {
    const json_t* const first = json_array_get(array, 0);
    const std::size_t size = json_array_size(array);
    std::vector<decltype(convert(array))> values;
    values.reserve(size);
    for (std::size_t i = 0; i < size; ++i) {
        json_t* const element = json_array_get(array, i);
        if (sameKind(first, element)) {
            values.push_back(convert(element));
        }
    }
    return values;
}

}  // namespace

/// The two conversions between records and JSON trees, which read and build values in place.
class JsonConversion {
  public:
    /// A new tree, the caller's, without what JSON cannot carry; incomplete() tells what it is
    /// worth.
    json_t* dictionaryToJson(const Dictionary& dictionary) {
        return container(json_object, [&](json_t* object) {
            dictionary.eachMap([&](const auto& map) {
                for (const auto& [key, value] : map) {
                    if (fitsJson(key) && fitsJson(value)) {
                        keep(json_object_set_new_nocheck(object, key.c_str(), toJson(value)));
                    }
                }
            });
        });
    }

    template <class Value>
    json_t* toJson(const std::vector<Value>& values) {
        return container(json_array, [&](json_t* array) {
            for (const auto& value : values) {
                if (fitsJson(value)) {
                    keep(json_array_append_new(array, toJson(value)));
                }
            }
        });
    }

    json_t* toJson(const Dictionary& value) { return dictionaryToJson(value); }

    bool tooDeep() const { return _tooDeep; }

    /// Whether something is missing that JSON could carry: it was too deep, or memory ran out.
    bool incomplete() const { return _incomplete; }

    /// The record that a tree, which stays the caller's and may be null, describes.
    static Dictionary jsonToDictionary(json_t* tree) {
        Dictionary dictionary;
        const char* key = nullptr;
        json_t* value = nullptr;
        json_object_foreach(tree, key, value) {
            storeMember(dictionary, key, value);
        }
        return dictionary;
    }

  private:
    template <class Fill>
    json_t* container(json_t* (*create)(), Fill fill) {
        if (_level > kMaxLevels) {
            _tooDeep = true;
            return nullptr;
        }
        ++_level;
        json_t* const created = create();
        fill(created);
        --_level;
        keep(created != nullptr ? 0 : -1);
        const bool filled = json_object_size(created) + json_array_size(created) > 0;
        _tooDeep = _tooDeep || (filled && _level == kMaxLevels);
        return created;
    }

    void keep(int result) { _incomplete = _incomplete || result != 0; }

    static json_t* toJson(long long value) {
        return json_integer(static_cast<std::int32_t>(static_cast<std::uint32_t>(value)));
    }
    static json_t* toJson(const std::string& value) { return json_string_nocheck(value.c_str()); }
    static json_t* toJson(bool value) { return json_boolean(value); }
    static json_t* toJson(long double value) { return json_real(static_cast<double>(value)); }

    // The members of a JSON object have distinct names: there is no earlier value to erase.
    static void storeMember(Dictionary& dictionary, const char* key, json_t* value) {
        switch (json_typeof(value)) {
            case JSON_OBJECT:
                dictionary.maps()._objectDictionary.emplace(key, jsonToDictionary(value));
                break;
            case JSON_ARRAY:
                storeArray(dictionary, key, value);
                break;
            case JSON_STRING:
                dictionary.maps()._stringDictionary.emplace(key, json_string_value(value));
                break;
            case JSON_INTEGER:
                dictionary.maps()._integerDictionary.emplace(key, toInteger<std::int32_t>(value));
                break;
            case JSON_REAL:
                dictionary.maps()._decimalDictionary.emplace(key, toDecimal(value));
                break;
            case JSON_TRUE:
            case JSON_FALSE:
                dictionary.maps()._booleanDictionary.emplace(key, toBoolean(value));
                break;
            case JSON_NULL:
                break;
        }
    }

    static void storeArray(Dictionary& dictionary, const char* key, json_t* array) {
        if (json_array_size(array) == 0) {
            return;
        }
        Dictionary::Maps& maps = dictionary.maps();
        switch (json_typeof(json_array_get(array, 0))) {
            case JSON_OBJECT:
                maps._objectArrayDictionary.emplace(key, elements(array, jsonToDictionary));
                break;
            case JSON_STRING:
                maps._stringArrayDictionary.emplace(key, elements(array, toString));
                break;
            case JSON_INTEGER:
                maps._integerArrayDictionary.emplace(key, elements(array, toInteger<long long>));
                break;
            case JSON_REAL:
                maps._decimalArrayDictionary.emplace(key, elements(array, toDecimal));
                break;
            case JSON_TRUE:
            case JSON_FALSE:
                maps._booleanArrayDictionary.emplace(key, elements(array, toBoolean));
                break;
            case JSON_ARRAY:
            case JSON_NULL:
                break;
        }
    }

    unsigned int _level = 0;
    bool _tooDeep = false;
    bool _incomplete = false;
};

namespace {

template <class Value>
std::string textOf(const Value& value) {
    JsonConversion conversion;
    const Tree tree(conversion.toJson(value));
    if (conversion.tooDeep()) {
        Log::log("NIVUR", LOG_ERROR, "JSON nesting error: more than %u levels", kMaxLevels);
        return "";
    }
    Text written;
    if (conversion.incomplete() || json_dump_callback(tree.get(), Text::append, &written, 0) != 0 ||
        written.failed) {
        return "";
    }
    return std::move(written.text);
}

}  // namespace

std::string Serialization::serialize(const Dictionary& dictionary) {
    return textOf(dictionary);
}

std::string Serialization::serializeArray(const std::vector<Dictionary>& dictionaries) {
    return textOf(dictionaries);
}

Dictionary Serialization::deserialize(const std::string& text) {
    const Tree tree(json_loads(text.c_str(), 0, nullptr));
    if (!tree) {
        Log::log("NIVUR", LOG_ERROR, "JSON parsing error: %s", text.c_str());
    }
    return JsonConversion::jsonToDictionary(tree.get());
}

std::vector<Dictionary> Serialization::deserializeArray(const std::string& text) {
    json_error_t error{};
    const Tree tree(json_loads(text.c_str(), 0, &error));
    if (!tree) {
        Log::log("NIVUR", LOG_ERROR, "JSON loading error: %s", error.text);
    }
    std::vector<Dictionary> dictionaries;
    const std::size_t size = json_array_size(tree.get());
    dictionaries.reserve(size);
    for (std::size_t i = 0; i < size; ++i) {
        dictionaries.push_back(JsonConversion::jsonToDictionary(json_array_get(tree.get(), i)));
    }
    return dictionaries;
}

}  // namespace NIVUR
