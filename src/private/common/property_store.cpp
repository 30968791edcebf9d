#include "private/common/property_store.h"

#include <cstddef>

#include "private/assertion.h"
#include "system_property.h"

#if defined(__ANDROID__)
#include <sys/system_properties.h>
#else
#include <map>

#include "mutex.h"
#include "thread_annotations.h"
#endif

namespace NIVUR {

namespace {

constexpr size_t kBufferSize = 1024;

}  // namespace

#if defined(__ANDROID__)

std::string platform::systemProperty(const char* name) {
    char value[kBufferSize] = "";
    ::__system_property_get(name, value);
    return value;
}

void setSystemProperty(const char* name, const char* /*value*/) {
    NIVUR_ASSERT(name);
}

#else

namespace {

struct PropertyTable {
    Mutex mutex;
    std::map<std::string, std::string> values NIVUR_GUARDED_BY(mutex);
};

PropertyTable& propertyTable() {
    // Never destroyed, because destructors of static objects may still read it.
    static PropertyTable& table = *new PropertyTable;
    return table;
}

}  // namespace

std::string platform::systemProperty(const char* name) {
    PropertyTable& table = propertyTable();
    AutoLock lock(table.mutex);
    const auto found = table.values.find(name);
    return found == table.values.end() ? "" : found->second.substr(0, kBufferSize - 1);
}

void setSystemProperty(const char* name, const char* value) {
    NIVUR_ASSERT(name);
    PropertyTable& table = propertyTable();
    AutoLock lock(table.mutex);
    if (value == nullptr) {
        table.values.erase(name);
    } else {
        table.values[name] = value;
    }
}

#endif

}  // namespace NIVUR
