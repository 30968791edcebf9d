#ifndef NIVUR_TESTS_SUPPORT_LOG_CAPTURE_H
#define NIVUR_TESTS_SUPPORT_LOG_CAPTURE_H

#include <nivur/log.h>

#include <cerrno>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

/// Collects the library's log lines, from any thread, as "LEVEL TEXT" while it exists. The lines
/// are static, because a sink has no argument to pass state.
class LogCapture {
  public:
    LogCapture() {
        take();
        NIVUR::Log::setCB(&LogCapture::sink);
    }
    ~LogCapture() { NIVUR::Log::setCB(nullptr); }

    /// Returns the lines so far and removes them.
    std::vector<std::string> take() {
        const std::lock_guard<std::mutex> lock(mutex());
        return std::exchange(lines(), {});
    }

  private:
    static std::mutex& mutex() {
        static std::mutex instance;
        return instance;
    }
    static std::vector<std::string>& lines() {
        static std::vector<std::string> instance;
        return instance;
    }
    static void sink(int level, const char* fmt, va_list args)
        __attribute__((format(printf, 2, 0))) {
        char text[4096];
        std::vsnprintf(text, sizeof(text), fmt, args);
        const std::lock_guard<std::mutex> lock(mutex());
        lines().push_back(std::to_string(level) + " " + text);
        errno = 0;  // a sink may change it
    }
};

using Lines = std::vector<std::string>;

#endif
