#ifndef NIVUR_SYSTEM_PROPERTY_H
#define NIVUR_SYSTEM_PROPERTY_H

#include "export.h"

namespace NIVUR {

/// Fills the process-wide table that stands in for Android's property store off Android, and which
/// SystemUtil::getDeviceInfo() reads: a copy of `value`, of which 1,023 bytes are read, replaces
/// any earlier one; null removes the entry. On Android it does nothing. Any thread may call it.
/// REQUIRES: name is not null.
NIVUR_EXPORT void setSystemProperty(const char* name, const char* value);

}  // namespace NIVUR

#endif
