#include "log_to_stderr.h"

#include <nivur/date.h>
#include <nivur/log.h>
#include <nivur/system_util.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>

#include "texts.h"

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

/// Lets through a number of lines a second. Whoever provokes more must not fill a disk with them.
class Limiter {
  public:
    bool allows() {
        const uint64_t second = NIVUR::SystemUtil::getCPUTime() / 1000;
        if (_second.exchange(second) != second) {
            _lines = 0;
        }
        return ++_lines <= kMaxLines;
    }

    bool isLast() const { return _lines == kMaxLines; }

  private:
    static constexpr unsigned int kMaxLines = 10;

    std::atomic<uint64_t> _second{0};
    std::atomic<unsigned int> _lines{0};
};

std::string harmless(const char* text) {
    std::string result;
    for (const char* line = text; *line != '\0';) {  // a loop's dump ends its lines with \r
        const size_t length = std::strcspn(line, "\r\n");
        result += printable(std::string(line, length));
        line += length;
        result += *line == '\0' ? "" : "\n";
        line += *line == '\0' ? 0 : 1;
    }
    return result;
}

}  // namespace

void logToStderr(int level, const char* fmt, va_list args) {
    static Limiter limiter;
    if (level < NIVUR::LOG_WARN || !limiter.allows()) {
        return;
    }
    char text[4096];
    std::vsnprintf(text, sizeof(text), fmt, args);
    const auto zone = static_cast<short>(Date::currentTimeZone());
    std::fprintf(stderr, "%s %-7s %s%s\n", Date::now().toShortString(zone).c_str(),
                 levelName(level), harmless(text).c_str(),
                 limiter.isLast() ? " (more lines of this second are left out)" : "");
}

}  // namespace mirror
