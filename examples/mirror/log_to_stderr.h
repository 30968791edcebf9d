#ifndef MIRROR_LOG_TO_STDERR_H
#define MIRROR_LOG_TO_STDERR_H

#include <cstdarg>

namespace mirror {

/// A sink for the library's log: writes warnings and errors to stderr, with the time and without
/// control characters, which a peer may have sent. Any thread.
void logToStderr(int level, const char* fmt, va_list args) __attribute__((format(printf, 2, 0)));

}  // namespace mirror

#endif
