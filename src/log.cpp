#include "log.h"

#include "private/assertion.h"

namespace NIVUR {

std::atomic<LogCallback> Log::_callback{nullptr};

void Log::setCB(LogCallback cb) {
    _callback.store(cb, std::memory_order_release);
}

void Log::vlog(const char* tag, LogLevel level, const char* fmt, va_list args) {
    NIVUR_ASSERT(tag);
    NIVUR_ASSERT(fmt);
    if (const LogCallback callback = _callback.load(std::memory_order_acquire)) {
        callback(level, fmt, args);
    }
}

void Log::log(const char* tag, LogLevel level, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    vlog(tag, level, fmt, args);
    va_end(args);
}

}  // namespace NIVUR
