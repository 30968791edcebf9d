#ifndef NIVUR_PRIVATE_COMMON_PROPERTY_STORE_H
#define NIVUR_PRIVATE_COMMON_PROPERTY_STORE_H

#include <string>

namespace NIVUR::platform {

/// Returns the value of a system property, cut to 1,023 bytes; "" if it does not exist. Any thread
/// may call it.
std::string systemProperty(const char* name);

}  // namespace NIVUR::platform

#endif
