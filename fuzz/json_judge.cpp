#include "json_judge.h"

#include <jansson.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>

namespace judge {
namespace {

using NIVUR::Dictionary;
using Tree = std::unique_ptr<json_t, decltype(&json_decref)>;

// clang-format off
json_t* tree(long long value) { return json_integer(static_cast<int32_t>(static_cast<uint32_t>(value))); }
json_t* tree(bool value) { return json_boolean(value); }
json_t* tree(long double value) { return json_real(static_cast<double>(value)); }
json_t* tree(const std::string& value) { return json_string(value.c_str()); }
// clang-format on
json_t* tree(const Dictionary& record);
template <class Value>
json_t* tree(const std::vector<Value>& values) {
    json_t* const array = json_array();
    for (const Value& value : values)
        json_array_append_new(array, tree(value));  // refuses null
    return array;
}

json_t* tree(const Dictionary& d, const std::string& key) {
    // clang-format off
    switch (d.getType(key)) {
        case Dictionary::TYPE_INTEGER: return tree(d.getInteger(key));
        case Dictionary::TYPE_STRING: return tree(d.getString(key));
        case Dictionary::TYPE_DECIMAL: return tree(d.getDecimal(key));
        case Dictionary::TYPE_BOOLEAN: return tree(d.getBoolean(key));
        case Dictionary::TYPE_OBJECT: return tree(d.getObject(key));
        case Dictionary::TYPE_INTEGER_ARRAY: return tree(d.getIntegerArray(key));
        case Dictionary::TYPE_STRING_ARRAY: return tree(d.getStringArray(key));
        case Dictionary::TYPE_DECIMAL_ARRAY: return tree(d.getDecimalArray(key));
        case Dictionary::TYPE_BOOLEAN_ARRAY: return tree(d.getBooleanArray(key));
        case Dictionary::TYPE_OBJECT_ARRAY: return tree(d.getObjectArray(key));
        default: return nullptr;
    }
    // clang-format on
}

json_t* tree(const Dictionary& record) {
    json_t* const object = json_object();
    for (const std::string& key : record.allKeys())
        json_object_set_new(object, key.c_str(), tree(record, key));
    return object;
}

std::string print(const Tree& json) {
    const std::unique_ptr<char, decltype(&std::free)> text(json_dumps(json.get(), 0), &std::free);
    return text.get();
}

template <class Integer>
Integer integer(const json_t* json) {
    using Limits = std::numeric_limits<Integer>;
    const double value = json_number_value(json);
    if (value >= -static_cast<double>(Limits::min())) return Limits::max();
    return static_cast<Integer>(std::max(value, static_cast<double>(Limits::min())));
}

Dictionary record(json_t* json);

template <class Convert>
auto array(json_t* json, Convert convert) {
    const auto kind = [](json_t* value) {
        return json_is_boolean(value) ? JSON_TRUE : json_typeof(value);
    };
    std::vector<decltype(convert(json))> values;
    for (size_t i = 0; i < json_array_size(json); ++i) {
        json_t* const element = json_array_get(json, i);
        if (kind(element) == kind(json_array_get(json, 0))) values.push_back(convert(element));
    }
    return values;
}

void setArray(Dictionary& d, const std::string& key, json_t* json) {
    const auto string = [](json_t* each) { return std::string(json_string_value(each)); };
    const auto decimal = [](json_t* each) -> long double { return json_real_value(each); };
    const auto boolean = [](json_t* each) { return json_is_true(each); };
    json_t* const first = json_array_get(json, 0);
    if (json_is_object(first)) d.setObjectArray(key, array(json, record));
    if (json_is_string(first)) d.setStringArray(key, array(json, string));
    if (json_is_integer(first)) d.setIntegerArray(key, array(json, integer<long long>));
    if (json_is_real(first)) d.setDecimalArray(key, array(json, decimal));
    if (json_is_boolean(first)) d.setBooleanArray(key, array(json, boolean));
}

Dictionary record(json_t* json) {
    Dictionary d;
    const char* key;
    json_t* value;
    json_object_foreach(json, key, value) {
        if (json_is_object(value)) d.setObject(key, record(value));
        if (json_is_array(value)) setArray(d, key, value);
        if (json_is_string(value)) d.setString(key, json_string_value(value));
        if (json_is_integer(value)) d.setInteger(key, integer<int32_t>(value));
        if (json_is_real(value)) d.setDecimal(key, json_real_value(value));
        if (json_is_boolean(value)) d.setBoolean(key, json_is_true(value));
    }
    return d;
}

}  // namespace

Reading read(const std::string& text) {
    json_error_t error{};
    const Tree json(json_loads(text.c_str(), 0, &error), &json_decref);
    Reading reading{record(json.get()), {}, json ? "" : error.text};
    for (size_t i = 0; i < json_array_size(json.get()); ++i)
        reading.records.push_back(record(json_array_get(json.get(), i)));
    return reading;
}

bool writes(const Dictionary& record, const std::string& written) {
    const std::string right = print(Tree(tree(record), &json_decref));
    if (written == right || JANSSON_VERSION_HEX < 0x020f00) return written == right;
    const Tree again(json_loads(written.c_str(), 0, nullptr), &json_decref);
    return again && print(again) == right;
}

}  // namespace judge
