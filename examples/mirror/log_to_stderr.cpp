#include "log_to_stderr.h"

#include <nivur/date.h>
#include <nivur/log.h>

#include <cstdio>

using NIVUR::Date;

namespace mirror {

namespace {

const char* levelName(int level) {
    switch (level) {
        case NIVUR::LOG_TRACE:
            return "trace";
        case NIVUR::LOG_DEBUG:
            return "debug";
        case NIVUR::LOG_WARN:
            return "warning";
        case NIVUR::LOG_ERROR:
            return "error";
        default:
            return "?";
    }
}

}  // namespace

void logToStderr(int level, const char* fmt, va_list args) {
    char text[1024];
    std::vsnprintf(text, sizeof(text), fmt, args);
    const auto zone = static_cast<short>(Date::currentTimeZone());
    std::fprintf(stderr, "%s %-7s %s\n", Date::now().toShortString(zone).c_str(), levelName(level),
                 text);
}

}  // namespace mirror
