#include "dictionary.h"

#include <type_traits>
#include <utility>
#include <variant>

#include "private/dictionary_entries.h"

namespace NIVUR {

namespace {

using D = Dictionary;

/// The types of values in the order of allKeys(), in which Dictionary::Entry::Value has them too.
constexpr D::ValueType kTypes[] = {
    D::TYPE_STRING,        D::TYPE_INTEGER,      D::TYPE_DECIMAL,       D::TYPE_BOOLEAN,
    D::TYPE_OBJECT,        D::TYPE_STRING_ARRAY, D::TYPE_INTEGER_ARRAY, D::TYPE_DECIMAL_ARRAY,
    D::TYPE_BOOLEAN_ARRAY, D::TYPE_OBJECT_ARRAY,
};

}  // namespace

Dictionary::Dictionary() noexcept = default;
Dictionary::Dictionary(Dictionary&& other) noexcept = default;
Dictionary& Dictionary::operator=(Dictionary&& other) noexcept = default;
Dictionary::~Dictionary() = default;

Dictionary::Dictionary(const Dictionary& other) {
    NestedCopies pending;
    copyEntries(other, pending);
    while (!pending.empty()) {
        const auto [from, to] = pending.back();
        pending.pop_back();
        to->copyEntries(*from, pending);
    }
}

Dictionary& Dictionary::operator=(const Dictionary& other) {
    return *this = Dictionary(other);
}

unsigned int Dictionary::size() const {
    return _blocks ? _blocks->_size : 0;
}

bool Dictionary::hasKey(const std::string& key) const {
    return find(key) != nullptr;
}

Dictionary::ValueType Dictionary::getType(const std::string& key) const {
    const Entry* const entry = find(key);
    return entry != nullptr ? kTypes[entry->value.index()] : TYPE_NONE;
}

std::vector<std::string> Dictionary::allKeys() const {
    std::vector<std::string> keys;
    keys.reserve(size());
    Walk walk(*this);
    while (const Entry* const entry = walk.next()) {
        keys.push_back(entry->key);
    }
    return keys;
}

void Dictionary::erase(const std::string& key) {
    eraseKey(key);
}

void Dictionary::clear() {
    _blocks.reset();
}

template <class Value>
Value Dictionary::valueOf(const std::string& key) const {
    const Entry* const entry = find(key);
    const Value* const value = entry != nullptr ? std::get_if<Value>(&entry->value) : nullptr;
    return value != nullptr ? *value : Value();
}

std::string Dictionary::getString(const std::string& key) const {
    return valueOf<std::string>(key);
}

long long Dictionary::getInteger(const std::string& key) const {
    return valueOf<long long>(key);
}

long double Dictionary::getDecimal(const std::string& key) const {
    return valueOf<long double>(key);
}

bool Dictionary::getBoolean(const std::string& key) const {
    return valueOf<bool>(key);
}

Dictionary Dictionary::getObject(const std::string& key) const {
    return valueOf<Dictionary>(key);
}

std::vector<std::string> Dictionary::getStringArray(const std::string& key) const {
    return valueOf<std::vector<std::string>>(key);
}

std::vector<long long> Dictionary::getIntegerArray(const std::string& key) const {
    return valueOf<std::vector<long long>>(key);
}

std::vector<long double> Dictionary::getDecimalArray(const std::string& key) const {
    return valueOf<std::vector<long double>>(key);
}

std::vector<bool> Dictionary::getBooleanArray(const std::string& key) const {
    return valueOf<std::vector<bool>>(key);
}

std::vector<Dictionary> Dictionary::getObjectArray(const std::string& key) const {
    return valueOf<std::vector<Dictionary>>(key);
}

void Dictionary::setString(const std::string& key, const std::string& value) {
    put(key, std::string(value));
}

void Dictionary::setInteger(const std::string& key, long long value) {
    put(key, std::move(value));
}

void Dictionary::setDecimal(const std::string& key, long double value) {
    put(key, std::move(value));
}

void Dictionary::setBoolean(const std::string& key, bool value) {
    put(key, std::move(value));
}

void Dictionary::setObject(const std::string& key, const Dictionary& value) {
    put(key, Dictionary(value));
}

void Dictionary::setStringArray(const std::string& key, const std::vector<std::string>& value) {
    put(key, std::vector<std::string>(value));
}

void Dictionary::setIntegerArray(const std::string& key, const std::vector<long long>& value) {
    put(key, std::vector<long long>(value));
}

void Dictionary::setDecimalArray(const std::string& key, const std::vector<long double>& value) {
    put(key, std::vector<long double>(value));
}

void Dictionary::setBooleanArray(const std::string& key, const std::vector<bool>& value) {
    put(key, std::vector<bool>(value));
}

void Dictionary::setObjectArray(const std::string& key, const std::vector<Dictionary>& value) {
    put(key, std::vector<Dictionary>(value));
}

}  // namespace NIVUR
