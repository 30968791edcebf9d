#include "log_to_stderr.h"

#include <nivur/date.h>
#include <nivur/log.h>
#include <nivur/mutex.h>
#include <nivur/system_util.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "texts.h"

using NIVUR::Date;

namespace mirror {

namespace {

constexpr char kLineEnds[] = "\r\n";  // a loop's dump has the first

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

/// Lets through a burst of lines and then one a second: whoever provokes more must not fill a disk
/// with them. Any thread.
class Limiter {
  public:
    /// Whether a line may be written now; if so, how many were left out since the last.
    std::optional<uint64_t> take() {
        const NIVUR::AutoLock lock(_mutex);
        const uint64_t nowMs = NIVUR::SystemUtil::getCPUTime();
        _paidMs = std::max(_paidMs, nowMs);
        if (_paidMs - nowMs >= kBurst * kLineMs) {
            ++_leftOut;
            return std::nullopt;
        }
        _paidMs += kLineMs;
        return std::exchange(_leftOut, 0);
    }

  private:
    static constexpr uint64_t kBurst = 20;
    static constexpr uint64_t kLineMs = 1000;

    NIVUR::Mutex _mutex;
    uint64_t _paidMs NIVUR_GUARDED_BY(_mutex) = 0;  // lines up to this time were written already
    uint64_t _leftOut NIVUR_GUARDED_BY(_mutex) = 0;
};

/// The lines of a text, of which all but the first are indented: none can pose as another message.
std::string harmless(const char* text) {
    std::string result;
    for (const char* line = text + std::strspn(text, kLineEnds); *line != '\0';
         line += std::strspn(line, kLineEnds)) {
        const size_t length = std::strcspn(line, kLineEnds);
        result += (result.empty() ? "" : "\n    ") + printable(std::string(line, length));
        line += length;
    }
    return result;
}

}  // namespace

void logToStderr(int level, const char* fmt, va_list args) {
    static Limiter limiter;
    const auto leftOut = level < NIVUR::LOG_WARN ? std::nullopt : limiter.take();
    if (!leftOut) {
        return;
    }
    char text[4096];
    std::vsnprintf(text, sizeof(text), fmt, args);
    const auto zone = static_cast<short>(Date::currentTimeZone());
    const std::string before =
        *leftOut > 0 ? "(after " + std::to_string(*leftOut) + " lines that were left out) " : "";
    std::fprintf(stderr, "%s %-7s %s%s\n", Date::now().toShortString(zone).c_str(),
                 levelName(level), before.c_str(), harmless(text).c_str());
}

}  // namespace mirror
