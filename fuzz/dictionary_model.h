#ifndef NIVUR_FUZZ_DICTIONARY_MODEL_H
#define NIVUR_FUZZ_DICTIONARY_MODEL_H

#include <nivur/serialization.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>

#include "input.h"

namespace NIVUR {

// print(value, written): canonical text of `value`; with `written`, of what should remain after a
// round trip through JSON ("" if nothing).

inline std::string print(long long value, bool written) {
    return std::to_string(written ? static_cast<int32_t>(value) : value);
}

inline std::string print(bool value, bool /*written*/) {
    return value ? "true" : "false";
}

inline std::string print(long double value, bool written) {
    char text[64];
    std::snprintf(text, sizeof(text), "%La", written ? static_cast<double>(value) : value);
    return written && !std::isfinite(static_cast<double>(value)) ? "" : text;
}

inline std::string print(const std::string& value, bool written) {
    const std::string text = written ? value.c_str() : value;
    const bool isUTF8 = text.find('\xff') == std::string::npos;  // the only invalid byte of inputs
    return written && !isUTF8 ? "" : '"' + text + '"';
}

inline std::string print(const Dictionary& d, bool written);

template <class Value>
std::string print(const std::vector<Value>& values, bool written) {
    std::string text;
    for (const Value& value : values) {
        const std::string element = print(value, written);
        text += element.empty() ? "" : element + ", ";
    }
    return written && text.empty() ? "" : '[' + text + ']';
}

/// The results of all ten getters, each at the index of its type.
inline std::vector<std::string> printAll(const Dictionary& d, const std::string& key,
                                         bool written) {
    const auto all = [written](const auto&... values) {
        return std::vector<std::string>{"", print(values, written)...};
    };
    return all(d.getInteger(key), d.getString(key), d.getDecimal(key), d.getBoolean(key),
               d.getObject(key), d.getIntegerArray(key), d.getStringArray(key),
               d.getDecimalArray(key), d.getBooleanArray(key), d.getObjectArray(key));
}

inline std::string print(const Dictionary& d, bool written) {
    std::vector<std::array<std::string, 2>> members;
    for (const std::string& key : d.allKeys()) {
        const std::string name = print(key, written);
        const std::string value = printAll(d, key, written)[d.getType(key)];
        if (name.empty() || (value.empty() && d.getType(key) <= Dictionary::TYPE_OBJECT)) continue;
        const auto isSame = [&](const auto& member) { return member[0] == name; };
        members.erase(std::remove_if(members.begin(), members.end(), isSame), members.end());
        members.push_back({name, value});  // the last of each name, even if it is an empty array
    }
    std::string text;
    for (const auto& [name, value] : members)
        if (!value.empty()) text.append(name).append(": ").append(value).append(", ");
    return '{' + text + '}';
}

/// Compares a dictionary with a map of printed values, while the operations of the input change
/// both.
class DictionaryModel {
  public:
    explicit DictionaryModel(Input& input) : _input(input) {}

    /// Runs all operations, and returns a record that holds a copy of itself.
    Dictionary run() {
        for (int step = 0; step < 30 && !_input.empty(); ++step) {
            const Dictionary before(_record);
            const std::string expected = printed();
            const std::string key = string();
            change(key, _input.below(13));
            check(print(before, false) == expected, "a copy stands alone");
            compare(key);
        }
        Dictionary self = object();
        self.setObject("self", self);
        check(print(self.getObject("self"), false) == print(object(), false),
              "a record may hold itself");
        return self;
    }

  private:
    using D = Dictionary;

    long long integer() { return _input.number<long long>(); }
    bool boolean() { return _input.below(2) == 1; }
    D object() { return print(_record, false).size() < 99 ? _record : D(); }
    long double decimal() {
        return std::ldexp(static_cast<long double>(integer()), _input.number<int16_t>());
    }
    std::string string() {
        static const std::string kTexts[] = {
            "", "a", "\xc3\xbc\x01\"", std::string("x\0y", 3), "\xff", "longer than a short string",
            "x"};
        return kTexts[_input.below(7)];
    }
    template <class Value>
    std::vector<Value> list(Value (DictionaryModel::*make)()) {
        std::vector<Value> values(_input.below(4));
        for (auto&& value : values)
            value = (this->*make)();
        return values;
    }

    void change(const std::string& key, unsigned operation) {
        using Model = DictionaryModel;
        const auto put = [&](auto set, const auto& value) {
            const std::string text = print(value, false);
            (_record.*set)(key, value);
            erase(key);
            _model[{operation, key}] = text;
        };
        // clang-format off
        switch (operation) {
            case 0: put(&D::setString, string()); break;
            case 1: put(&D::setInteger, integer()); break;
            case 2: put(&D::setDecimal, decimal()); break;
            case 3: put(&D::setBoolean, boolean()); break;
            case 4: put(&D::setObject, boolean() ? object() : D()); break;
            case 5: put(&D::setStringArray, list(&Model::string)); break;
            case 6: put(&D::setIntegerArray, list(&Model::integer)); break;
            case 7: put(&D::setDecimalArray, list(&Model::decimal)); break;
            case 8: put(&D::setBooleanArray, list(&Model::boolean)); break;
            case 9: put(&D::setObjectArray, list(&Model::object)); break;
            case 10: erase(key); _record.erase(key); break;
            case 11: _record = D(std::move(_record)); break;
            case 12: _record = boolean() ? D(_record) : static_cast<const D&>(_record); break;
        }
        // clang-format on
    }

    void erase(const std::string& key) {
        for (unsigned group = 0; group < 10; ++group)
            _model.erase({group, key});
    }

    void compare(const std::string& key) {
        check(print(_record, false) == printed(), "a key holds what it was given last");
        check(_record.size() == _model.size(), "a record counts its keys");
        _record.erase("absent");
        check(printAll(_record, "absent", false) == printAll(D(), "", false), "defaults");
        check(_record.hasKey(key) == (_record.getType(key) != D::TYPE_NONE), "keys have types");
    }

    std::string printed() const {
        std::string text = "{";
        for (const auto& [place, value] : _model)
            text += print(place.second, false) + ": " + value + ", ";
        return text + '}';
    }

    Input& _input;
    Dictionary _record;
    std::map<std::pair<unsigned, std::string>, std::string> _model;  // in the order of allKeys()
};

inline void checkReadAgain(const Dictionary& record) {
    const Dictionary again = Serialization::deserialize(Serialization::serialize(record));
    check(print(again, false) == print(record, true), "what is written is read again");
}

}  // namespace NIVUR

#endif
