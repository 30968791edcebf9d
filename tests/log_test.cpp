#include <gtest/gtest.h>
#include <nivur/log.h>

#include <cstring>

namespace NIVUR {
namespace {

int sinkLevel;
const char* sinkFormat;
int sinkArgument;

void recordingSink(int level, const char* fmt, va_list args) {
    sinkLevel = level;
    sinkFormat = fmt;
    sinkArgument = va_arg(args, int);
}

TEST(Log, HandsLevelFormatAndArgumentsToTheSinkUnformatted) {
    static const char kFormat[] = "creating thread failed: err=%d";
    Log::log("NIVUR", LOG_ERROR, kFormat, 10);  // silent: there is no sink yet
    Log::setCB(recordingSink);
    for (const int level : {1, 2, 4, 5, 0, 3, -7, 100}) {
        Log::log("NIVUR", static_cast<LogLevel>(level), kFormat, level + 11);
        EXPECT_EQ(sinkLevel, level);
        EXPECT_EQ(sinkFormat, kFormat);
        EXPECT_EQ(sinkArgument, level + 11);
    }
    Log::setCB(nullptr);
    Log::log("NIVUR", LOG_ERROR, kFormat, 1);
    EXPECT_EQ(sinkArgument, 111);
}

TEST(LogDeathTest, NullTagOrFormatAborts) {
    const char* const null = nullptr;
    EXPECT_DEATH(Log::log(null, LOG_ERROR, "x"),
                 "^[^/]*src/log.cpp:.*vlog\\(.*Assertion `tag' failed");
    EXPECT_DEATH(Log::log("NIVUR", LOG_ERROR, null), "src/log.cpp:.*Assertion `fmt' failed");
}

}  // namespace
}  // namespace NIVUR
