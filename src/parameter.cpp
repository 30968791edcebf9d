#include "parameter.h"

namespace NIVUR {

Parameter::Parameter() = default;

Parameter::~Parameter() = default;

void Parameter::set(const std::string& key, ParameterValue* value) {
    if (value == nullptr) {
        remove(key);
    } else if (value != get(key)) {
        std::unique_ptr<ParameterValue> owned(value);
        _entries[key].swap(owned);
    }
}

ParameterValue* Parameter::get(const std::string& key) const {
    const auto entry = _entries.find(key);
    return entry == _entries.end() ? nullptr : entry->second.get();
}

bool Parameter::remove(const std::string& key) {
    const auto entry = _entries.find(key);
    if (entry == _entries.end()) {
        return false;
    }
    // A value's destructor is the caller's code and finds the entry gone.
    const auto removed = _entries.extract(entry);
    return true;
}

size_t Parameter::size() const {
    return _entries.size();
}

}  // namespace NIVUR
