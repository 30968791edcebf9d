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

constexpr char kLineEnds[] = "\r\n";  // a loop's dump contains \r

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

/// Limits the lines to a burst and then one per second, so that a peer that provokes messages
/// cannot fill the disk with them. Any thread.
class Limiter {
  public:
    /// Whether a line may be written now; if so, the number of lines omitted since the last one.
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
    uint64_t _paidMs NIVUR_GUARDED_BY(_mutex) = 0;  // when the whole burst is free again
    uint64_t _leftOut NIVUR_GUARDED_BY(_mutex) = 0;
};

/// Indents all lines but the first, so that no line can pose as another message.
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
