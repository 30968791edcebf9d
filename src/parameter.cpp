#include "parameter.h"

namespace NIVUR {

Parameter::Parameter() = default;

// extract() removes an entry before it deletes the value, whose destructor may call this object.
Parameter::~Parameter() {
    while (!_entries.empty()) {
        const auto removed = _entries.extract(_entries.begin());
    }
}

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
    const auto removed = _entries.extract(entry);  // as in the destructor
    return true;
}

size_t Parameter::size() const {
    return _entries.size();
}

}  // namespace NIVUR
