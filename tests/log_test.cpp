#include <gtest/gtest.h>
#include <nivur/log.h>

#include <cstring>

namespace NIVUR {
namespace {

TEST(Log, HandsLevelFormatAndArgumentsToTheSinkUnformatted) {
    static struct {
        int level;
        const char* format;
        int argument;
    } received;  // static, because a sink has no argument to pass state
    static const char kFormat[] = "creating thread failed: err=%d";
    Log::log("NIVUR", LOG_ERROR, kFormat, 10);  // silent: there is no sink yet
    Log::setCB([](int level, const char* fmt, va_list args) {
        received = {level, fmt, va_arg(args, int)};
    });
    for (const int level : {1, 2, 4, 5, 0, 3, -7, 100}) {
        Log::log("NIVUR", static_cast<LogLevel>(level), kFormat, level + 11);
        EXPECT_EQ(received.level, level);
        EXPECT_EQ(received.format, kFormat);
        EXPECT_EQ(received.argument, level + 11);
    }
    Log::setCB(nullptr);
    Log::log("NIVUR", LOG_ERROR, kFormat, 1);
    EXPECT_EQ(received.argument, 111);
}

TEST(LogDeathTest, NullTagOrFormatAborts) {
    const char* const null = nullptr;
    EXPECT_DEATH(Log::log(null, LOG_ERROR, "x"),
                 "^[^/]*src/log.cpp:.*vlog\\(.*Assertion `tag' failed");
    EXPECT_DEATH(Log::log("NIVUR", LOG_ERROR, null), "src/log.cpp:.*Assertion `fmt' failed");
}

}  // namespace
}  // namespace NIVUR
