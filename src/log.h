#ifndef NIVUR_LOG_H
#define NIVUR_LOG_H

#include <atomic>
#include <cstdarg>

#include "export.h"

// <syslog.h> defines a macro of this name. Callers that include it keep it.
#pragma push_macro("LOG_DEBUG")
#undef LOG_DEBUG

namespace NIVUR {

/// Severity of a log line. The library uses these four; a sink must accept any int.
enum LogLevel : int { LOG_TRACE = 1, LOG_DEBUG = 2, LOG_WARN = 4, LOG_ERROR = 5 };

/// The application's log sink: formats and writes `fmt` with `args`. It is called on the thread
/// that logs, and on several threads at once. A sink that posts to a run loop must guard against
/// recursion: the loop logs a post that it refuses.
using LogCallback = void (*)(int level, const char* fmt, va_list args);

/// Diagnostics of the library. It formats and writes nothing itself: without a sink every call is
/// silent. Any thread may call any operation at any time.
class NIVUR_EXPORT Log {
  public:
    Log() = delete;

    /// Replaces the process-wide sink; null silences the library. A call that is under way on
    /// another thread may still use the old sink.
    static void setCB(LogCallback cb);

    /// Passes level, format and arguments to the sink. `tag` is not passed on.
    /// REQUIRES: tag and fmt are not null.
    static void vlog(const char* tag, LogLevel level, const char* fmt, va_list args)
        __attribute__((format(printf, 3, 0)));

    /// Like vlog(), with the arguments in the call.
    static void log(const char* tag, LogLevel level, const char* fmt, ...)
        __attribute__((format(printf, 3, 4)));

  private:
    static std::atomic<LogCallback> _callback;
};

}  // namespace NIVUR

#pragma pop_macro("LOG_DEBUG")

#endif
