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
    if (level < NIVUR::LOG_WARN) {
        return;
    }
    char text[4096];
    std::vsnprintf(text, sizeof(text), fmt, args);
    for (char* character = text; *character != '\0'; ++character) {
        if (*character == '\r') {
            *character = '\n';  // the end of a line in a loop's dump
        } else if (static_cast<unsigned char>(*character) < ' ' && *character != '\t') {
            *character = '?';
        }
    }
    const auto zone = static_cast<short>(Date::currentTimeZone());
    std::fprintf(stderr, "%s %-7s %s\n", Date::now().toShortString(zone).c_str(), levelName(level),
                 text);
}

}  // namespace mirror
