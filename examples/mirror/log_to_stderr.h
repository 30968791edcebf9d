#ifndef MIRROR_LOG_TO_STDERR_H
#define MIRROR_LOG_TO_STDERR_H

#include <cstdarg>

namespace mirror {

/// A sink for the library's log: warnings and errors with their time, to stderr, without control
/// characters that a peer may have chosen. Any thread.
void logToStderr(int level, const char* fmt, va_list args) __attribute__((format(printf, 2, 0)));

}  // namespace mirror

#endif
