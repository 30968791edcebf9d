#ifndef NIVUR_LOG_H
#define NIVUR_LOG_H

#include <atomic>
#include <cstdarg>

#include "export.h"

// <syslog.h> has a macro of this name, which keeps its meaning for whoever included it.
#pragma push_macro("LOG_DEBUG")
#undef LOG_DEBUG

namespace NIVUR {

/// Severity of a log line. The library uses these four; a sink must accept any int.
enum LogLevel : int { LOG_TRACE = 1, LOG_DEBUG = 2, LOG_WARN = 4, LOG_ERROR = 5 };

/// The application's log sink: formats and prints `fmt` with `args`. It is called on whichever
/// thread logs, also on several at once. One that posts to a run loop must guard against being
/// called from within itself: a refused post is logged.
using LogCallback = void (*)(int level, const char* fmt, va_list args);

/// The library's one way out for diagnostics. It formats nothing and writes nothing: without a sink
/// every call is silent. Any thread may call any operation at any time.
class NIVUR_EXPORT Log {
  public:
    Log() = delete;

    /// Replaces the process-wide sink; null silences the library. A call under way on another
    /// thread still reaches the sink that it found.
    static void setCB(LogCallback cb);

    /// Hands level, format and arguments to the sink. The tag must be there but goes no further.
    /// REQUIRES: tag and fmt are not null.
    static void vlog(const char* tag, LogLevel level, const char* fmt, va_list args)
        __attribute__((format(printf, 3, 0)));

    /// As vlog(), with the arguments in the call.
    static void log(const char* tag, LogLevel level, const char* fmt, ...)
        __attribute__((format(printf, 3, 4)));

  private:
    static std::atomic<LogCallback> _callback;
};

}  // namespace NIVUR

#pragma pop_macro("LOG_DEBUG")

#endif
