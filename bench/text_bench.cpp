#include <nivur/date.h>
#include <nivur/string_util.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sstream>

#include "bench.h"

namespace bench {

namespace {

const Family kFamily("text");

/// The adapter of an implementation.
template <class Way>
void measure(State& state, Way way) {
    unsigned int number = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(way(++number));
    }
}

struct Nivur {
    static std::string name() { return "nivur"; }
};
struct C {
    static std::string name() { return "C library"; }
};
struct Snprintf {
    static std::string name() { return "snprintf"; }
};
struct ToChars {
    static std::string name() { return "std::to_chars, std::from_chars"; }
};
struct Std {
    static std::string name() { return "std::to_string, std::stoi"; }
};
struct Stream {
    static std::string name() { return "std::istringstream"; }
};

constexpr unsigned long long kMilliseconds = 1700000000123ULL;

template <class Adapter, class Way>
void add(const char* service, Way way) {
    kFamily.add(service, Peers<Adapter>(), [way](State& state, auto) { measure(state, way); });
}

tm utcTime(unsigned long long milliseconds) {
    const auto seconds = static_cast<time_t>(milliseconds / 1000);
    tm parts = {};
    ::gmtime_r(&seconds, &parts);
    return parts;
}

void addDates() {
    add<Nivur>("date from components", [](unsigned int n) {
        return NIVUR::Date(2023, 11, 1 + n % 28, 22, 13, 20, 123).millisecondsFrom1970();
    });
    add<C>("date from components", [](unsigned int n) {
        tm parts = {};
        parts.tm_year = 123;
        parts.tm_mon = 10;
        parts.tm_mday = static_cast<int>(1 + n % 28);
        parts.tm_hour = 22;
        parts.tm_min = 13;
        parts.tm_sec = 20;
        return static_cast<unsigned long long>(::timegm(&parts)) * 1000 + 123;
    });
    add<Nivur>("date from milliseconds",
               [](unsigned int n) { return NIVUR::Date(kMilliseconds + n * 1000ULL).day(); });
    add<C>("date from milliseconds",
           [](unsigned int n) { return utcTime(kMilliseconds + n * 1000ULL).tm_mday; });
    add<Nivur>("date of now", [](unsigned int) { return NIVUR::Date::now().day(); });
    add<C>("date of now", [](unsigned int) {
        timespec now = {};
        ::clock_gettime(CLOCK_REALTIME, &now);
        return utcTime(static_cast<unsigned long long>(now.tv_sec) * 1000).tm_mday;
    });
    add<Nivur>("date to text",
               [date = NIVUR::Date(kMilliseconds)](unsigned int) { return date.toString(1); });
    add<C>("date to text", [](unsigned int) {
        const tm parts = utcTime(kMilliseconds + 3600000);
        char text[32];
        const size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
        std::snprintf(text + length, sizeof text - length, ".%03d", 123);
        return std::string(text);
    });
    add<Snprintf>("date to text", [](unsigned int) {
        const tm parts = utcTime(kMilliseconds + 3600000);
        char text[80];
        std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", parts.tm_year + 1900,
                      parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                      123);
        return std::string(text);
    });
}

void addNumbers() {
    add<Nivur>("number to text",
               [](unsigned int n) { return NIVUR::StringUtil::int2String(n * 7919L); });
    add<Std>("number to text", [](unsigned int n) { return std::to_string(n * 7919L); });
    add<ToChars>("number to text", [](unsigned int n) {
        char text[24];
        return std::string(text, std::to_chars(text, text + sizeof text, n * 7919L).ptr);
    });
    static const std::string kNumber = "-1234567";
    add<Nivur>("text to number",
               [](unsigned int) { return NIVUR::StringUtil::string2Int(kNumber); });
    add<Std>("text to number", [](unsigned int) { return std::stoi(kNumber); });
    add<ToChars>("text to number", [](unsigned int) {
        int number = 0;
        std::from_chars(kNumber.data(), kNumber.data() + kNumber.size(), number);
        return number;
    });
    static const std::string kByte = "192";
    add<Nivur>("text to byte", [](unsigned int) { return NIVUR::stringToUInt8(kByte); });
    add<C>("text to byte",
           [](unsigned int) { return static_cast<uint8_t>(std::atoi(kByte.c_str())); });
}

void addByteLists() {
    static const std::string kWords = "192 168 0 1 255 17 4 99 250 3 76 44 128 64 32 16";
    add<Nivur>("text of 16 words to bytes", [](unsigned int) {
        std::vector<uint8_t> bytes;
        NIVUR::StringUtil::string2UInt8Vector(kWords, bytes);
        return bytes;
    });
    add<Stream>("text of 16 words to bytes", [](unsigned int) {
        std::vector<uint8_t> bytes;
        std::istringstream words(kWords);
        for (unsigned int word = 0; words >> word;) {
            bytes.push_back(static_cast<uint8_t>(word));
        }
        return bytes;
    });
    add<C>("text of 16 words to bytes", [](unsigned int) {
        std::vector<uint8_t> bytes;
        char* next = nullptr;
        for (const char* at = kWords.c_str(); *at != 0; at = next) {
            bytes.push_back(static_cast<uint8_t>(std::strtol(at, &next, 10)));
        }
        return bytes;
    });
}

}  // namespace

void addText() {
    addDates();
    addNumbers();
    addByteLists();
}

}  // namespace bench
