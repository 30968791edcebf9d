#ifndef NIVUR_SYSTEM_PROPERTY_H
#define NIVUR_SYSTEM_PROPERTY_H

#include "export.h"

namespace NIVUR {

/// Sets a system property for SystemUtil::getDeviceInfo(), where the platform has no properties of
/// its own: a process-wide table keeps a copy of `value`, of which at most 1,023 bytes are read.
/// Null removes the property. On Android, which has properties, it does nothing. Any thread may
/// call it.
/// REQUIRES: name is not null.
NIVUR_EXPORT void setSystemProperty(const char* name, const char* value);

}  // namespace NIVUR

#endif
