#include "dictionary.h"

#include "private/dictionary_entries.h"

namespace NIVUR {

namespace {

using D = Dictionary;

/// The types of values in the order of allKeys(), which is also that of Dictionary::Entry::Value.
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
    Entries(*this).copy(other);
}

Dictionary& Dictionary::operator=(const Dictionary& other) {
    return *this = Dictionary(other);
}

unsigned int Dictionary::size() const {
    return _blocks ? _blocks->_size : 0;
}

bool Dictionary::hasKey(const std::string& key) const {
    return Entries::find(*this, key) != nullptr;
}

Dictionary::ValueType Dictionary::getType(const std::string& key) const {
    const Entry* const entry = Entries::find(*this, key);
    return entry != nullptr ? kTypes[entry->value.index()] : TYPE_NONE;
}

std::vector<std::string> Dictionary::allKeys() const {
    std::vector<std::string> keys;
    keys.reserve(size());
    Entries::Walk walk(*this);
    while (const Entry* const entry = walk.next()) {
        keys.push_back(entry->key);
    }
    return keys;
}

void Dictionary::erase(const std::string& key) {
    Entries(*this).erase(key);
}

void Dictionary::clear() {
    _blocks.reset();
}

std::string Dictionary::getString(const std::string& key) const {
    return Entries::get<std::string>(*this, key);
}

long long Dictionary::getInteger(const std::string& key) const {
    return Entries::get<long long>(*this, key);
}

long double Dictionary::getDecimal(const std::string& key) const {
    return Entries::get<long double>(*this, key);
}

bool Dictionary::getBoolean(const std::string& key) const {
    return Entries::get<bool>(*this, key);
}

Dictionary Dictionary::getObject(const std::string& key) const {
    return Entries::get<Dictionary>(*this, key);
}

std::vector<std::string> Dictionary::getStringArray(const std::string& key) const {
    return Entries::get<std::vector<std::string>>(*this, key);
}

std::vector<long long> Dictionary::getIntegerArray(const std::string& key) const {
    return Entries::get<std::vector<long long>>(*this, key);
}

std::vector<long double> Dictionary::getDecimalArray(const std::string& key) const {
    return Entries::get<std::vector<long double>>(*this, key);
}

std::vector<bool> Dictionary::getBooleanArray(const std::string& key) const {
    return Entries::get<std::vector<bool>>(*this, key);
}

std::vector<Dictionary> Dictionary::getObjectArray(const std::string& key) const {
    return Entries::get<std::vector<Dictionary>>(*this, key);
}

void Dictionary::setString(const std::string& key, const std::string& value) {
    Entries(*this).put(key, value);
}

void Dictionary::setInteger(const std::string& key, long long value) {
    Entries(*this).put(key, value);
}

void Dictionary::setDecimal(const std::string& key, long double value) {
    Entries(*this).put(key, value);
}

void Dictionary::setBoolean(const std::string& key, bool value) {
    Entries(*this).put(key, value);
}

void Dictionary::setObject(const std::string& key, const Dictionary& value) {
    Entries(*this).put(key, value);
}

void Dictionary::setStringArray(const std::string& key, const std::vector<std::string>& value) {
    Entries(*this).put(key, value);
}

void Dictionary::setIntegerArray(const std::string& key, const std::vector<long long>& value) {
    Entries(*this).put(key, value);
}

void Dictionary::setDecimalArray(const std::string& key, const std::vector<long double>& value) {
    Entries(*this).put(key, value);
}

void Dictionary::setBooleanArray(const std::string& key, const std::vector<bool>& value) {
    Entries(*this).put(key, value);
}

void Dictionary::setObjectArray(const std::string& key, const std::vector<Dictionary>& value) {
    Entries(*this).put(key, value);
}

}  // namespace NIVUR
