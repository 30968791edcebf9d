#ifndef NIVUR_VERSION_H
#define NIVUR_VERSION_H

#include "export.h"

/// \file
/// The version, defined here only: CMake, pkg-config and the library's file name take it from here.

#define NIVUR_VERSION_MAJOR 0  ///< changes when the interface breaks programs that use it
#define NIVUR_VERSION_MINOR 2  ///< changes with additions; before 1.0 also with such breaks
#define NIVUR_VERSION_PATCH 0  ///< changes with corrections

/// The version of these headers as one number, for comparisons: 10203 is 1.2.3.
#define NIVUR_VERSION \
    (NIVUR_VERSION_MAJOR * 10000 + NIVUR_VERSION_MINOR * 100 + NIVUR_VERSION_PATCH)

namespace NIVUR {

/// The version of the library that is loaded, in the form of NIVUR_VERSION. It may be newer than
/// the headers that the caller was compiled with. Any thread may call it.
NIVUR_EXPORT int version();

}  // namespace NIVUR

#endif
