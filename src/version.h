#ifndef NIVUR_VERSION_H
#define NIVUR_VERSION_H

#include "export.h"

/// \file
/// The version. It stands here alone: CMake, pkg-config and the library's file name read it here.

#define NIVUR_VERSION_MAJOR 0  ///< changes with an interface that breaks its users
#define NIVUR_VERSION_MINOR 2  ///< changes with additions, and before 1.0 with breaks as well
#define NIVUR_VERSION_PATCH 0  ///< changes with corrections alone

/// The version of these headers as one number that compares: 10203 is 1.2.3.
#define NIVUR_VERSION \
    (NIVUR_VERSION_MAJOR * 10000 + NIVUR_VERSION_MINOR * 100 + NIVUR_VERSION_PATCH)

namespace NIVUR {

/// The version of the library that runs, which may be newer than the headers that its caller was
/// compiled with: a number as NIVUR_VERSION is. Any thread may call it.
NIVUR_EXPORT int version();

}  // namespace NIVUR

#endif
