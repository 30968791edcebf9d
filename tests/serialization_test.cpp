#include <gtest/gtest.h>
#include <nivur/serialization.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <clocale>
#include <cmath>
#include <ctime>

#include "support/log_capture.h"

namespace NIVUR {
namespace {

using D = Dictionary;

/// `value`, nested `levels` deep; every third level is an array, all others are objects.
std::string nested(int levels, const std::string& value) {
    std::string text = value;
    for (int level = levels - 1; level >= 0; --level)
        text.insert(0, level % 3 == 2 ? "[" : R"({"a": )").append(level % 3 == 2 ? "]" : "}");
    return text;
}

TEST(Serialization, NestingCostsNoStackInAnyDirection) {
    const auto readCopyWriteAndDrop = [](void* argument) -> void* {
        const std::string& text = *static_cast<std::string*>(argument);
        D record = Serialization::deserialize(text);
        const D copy(record);
        record.clear();
        return Serialization::serialize(copy) == text ? argument : nullptr;
    };
    std::string text = nested(2047, "1.5");
    pthread_attr_t small{};
    pthread_attr_init(&small);
    const auto least = static_cast<size_t>(sysconf(_SC_THREAD_STACK_MIN));  // 128 KiB on aarch64
    ASSERT_EQ(pthread_attr_setstacksize(&small, std::max<size_t>(65536, least)), 0);
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, &small, readCopyWriteAndDrop, &text), 0);
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, &text);
}

TEST(Serialization, HeedsNoLocale) {
    if (std::setlocale(LC_ALL, "ps_AF.UTF-8") == nullptr) GTEST_SKIP() << "there is no localedef";
    ASSERT_EQ(std::localeconv()->decimal_point, std::string("\xd9\xab"));
    const std::string text = R"({"a": 1.5, "b": [-0.0, 1e-10, 1.7976931348623157e308]})";
    EXPECT_EQ(Serialization::serialize(Serialization::deserialize(text)), text);
    EXPECT_EQ(Serialization::deserialize(R"({"a": 1e309})").size(), 0U);
    std::setlocale(LC_ALL, "C");
}

TEST(Serialization, WritesWhatJsonCanCarry) {
    const long double rounded =  // above the largest double, if long double is wider
        std::min(std::nextafter(static_cast<long double>(DBL_MAX), HUGE_VALL), LDBL_MAX);
    std::vector<D> records(10);
    records[0].setInteger("", 1LL << 31);
    records[1].setString("ü\t", "\\/\x01 – 😀");
    records[2].setString("\xc0\x80", "not under a key that is not UTF-8");
    records[3].setStringArray("s", {"b", "\xed\xa0\x80", std::string("x\0y", 3)});
    records[4].setDecimal(std::string("d\0y", 3), -0.1L);  // the last of those written as "d"
    records[4].setString("d", "the first, which has the place");
    records[4].setInteger("e", 0);
    records[4].setDecimal("f", HUGE_VALL);
    records[5].setDecimalArray("d", {std::nanl(""), -HUGE_VALL, DBL_MAX * 2.0L, 2});
    records[6].setIntegerArray("i", {~(1LL << 31), 1LL << 32});
    records[7].setBooleanArray("b", {});
    records[8].setDecimalArray("d", {rounded, 1e16L, -1e17L, 123456.75L, 1e-4L, -0.0L, 0.25L});
    records[9].setDecimalArray("d", {-1.5L, -0.0009765625L, 1e-5L, 1e-10L, 999999.5L, 1e6L});
    records[9].setString("c", "\x0f\x10\x1f");
    EXPECT_EQ(
        Serialization::serializeArray(records),
        R"([{"": -2147483648}, {"ü\t": "\\/\u0001 – 😀"}, {}, {"s": ["b", "x"]}, )"
        R"({"d": -0.10000000000000001, "e": 0}, {"d": [2.0]}, {"i": [2147483647, 0]}, {"b": []}, )"
        R"({"d": [1.7976931348623157e308, 10000000000000000.0, -1e17, 123456.75, 0.0001, )"
        R"(-0.0, 0.25]}, {"c": "\u000F\u0010\u001F", "d": [-1.5, -0.0009765625, )"
        R"(1.0000000000000001e-5, 1e-10, 999999.5, 1000000.0]}])");
    EXPECT_EQ(Serialization::serializeArray({}), "[]");
}

TEST(Serialization, ReadsEveryShapeByTheTypeOfItsParts) {
    const std::pair<const char*, const char*> kCases[] = {
        {" \t\r\n{ } \n", "{}"},
        {R"({"a":1,"b":2,"":-0,"\u0061":"last"})", R"({"a": "last", "": 0, "b": 2})"},
        {R"({"a":1,"b":{},"c":[2],"d":"x","e":1.5,"a":null,"b":[],"c":[[]],"d":[null],"e":true})",
         R"({"e": true})"},
        {R"({"a":2147483648,"b":-2147483649,"c":9223372036854775807})",
         R"({"a": 2147483647, "b": -2147483648, "c": 2147483647})"},
        {R"({"a":1.0,"b":1e2,"c":-0.5E-1,"d":1e-400})",
         R"({"a": 1.0, "b": 100.0, "c": -0.050000000000000003, "d": 0.0})"},
        {R"({"a":true,"b":false,"c":{"d":null}})", R"({"a": true, "b": false, "c": {}})"},
        {R"({"a":[],"b":[null,1],"c":[[1],2]})", "{}"},
        {R"({"a":[1,"x",2.5,3,true,null,[4],{}],"b":["x",1,"y"]})",
         R"({"b": ["x", "y"], "a": [1, 3]})"},
        {R"({"a":[2.5,1,1e0],"b":[false,true,1],"c":[true,false]})",
         R"({"a": [2.5, 1.0], "b": [false, true], "c": [true, false]})"},
        {R"({"a":[{"b":1},2,{},[{}]]})", R"({"a": [{"b": 1}, {}]})"},
        {R"([{"a":1}])", "{}"},
    };
    LogCapture log;
    for (const auto& [text, record] : kCases) {
        const D read = Serialization::deserialize(text);
        EXPECT_EQ(Serialization::serialize(read), record) << text;
        EXPECT_FALSE(read.hasKey("none")) << text;
        EXPECT_EQ(read.getType("none"), D::TYPE_NONE) << text;
    }
    EXPECT_EQ(Serialization::deserialize(
                  R"({"a":"\u00fc\u07ff\u0800\uFfFf\ud800\udc00\udbff\udfff\"\\\/\b"})")
                  .getString("a"),
              "ü\u07ff\u0800\uffff\U00010000\U0010ffff\"\\/\b");
    EXPECT_EQ(Serialization::serializeArray(
                  Serialization::deserializeArray(R"([{"a":1},2,null,[{"b":3}]])")),
              R"([{"a": 1}, {}, {}, {}])");
    EXPECT_EQ(Serialization::deserialize(
                  R"({"a":[9007199254740993,9223372036854775807,-9223372036854775808]})")
                  .getIntegerArray("a"),
              (std::vector<long long>{1LL << 53, LLONG_MAX, LLONG_MIN}));
    EXPECT_TRUE(Serialization::deserializeArray(R"({"a":[{}]})").empty());
    EXPECT_EQ(log.take(), Lines());
}

TEST(Serialization, ReadsNumbersThatNoDoubleHoldsAsZeroOrNotAtAll) {
    const std::string zeros(400, '0');
    const std::pair<std::string, const char*> kCases[] = {
        {"0." + zeros + "1", "0.0"},
        {"0." + zeros + "1e10", "0.0"},
        {"0." + zeros + "1e395", "9.9999999999999995e-7"},
        {"0." + zeros + "1e1000", nullptr},
        {"1" + zeros + ".0", nullptr},
        {"1" + zeros + "e-1", nullptr},
        {"1" + zeros + "e-1000", "0.0"},
        {"1e-99999999999999999999", "0.0"},
        {"-1e-99999999999999999999", "-0.0"},
        {"1e99999999999999999999", nullptr},
        {"0e99999999999999999999", "0.0"},
    };
    LogCapture log;
    for (const auto& [number, written] : kCases) {
        const D record = Serialization::deserialize("{\"a\": " + number + "}");
        EXPECT_EQ(Serialization::serialize(record),
                  written != nullptr ? "{\"a\": " + std::string(written) + "}" : "{}")
            << number;
    }
}

TEST(Serialization, KnowsTheFirstAndTheLastSequenceOfEachKindOfUtf8) {
    const std::pair<const char*, bool> kCases[] = {
        {"\x7f", true},
        {"\x80", false},
        {"\xc1\xbf", false},
        {"\xc2\x80", true},
        {"\xc2\x7f", false},
        {"\xdf\xbf", true},
        {"\xdf\xc0", false},
        {"\xe0\x9f\xbf", false},
        {"\xe0\xa0\x80", true},
        {"\xe0\xa0\x7f", false},
        {"\xed\x9f\xbf", true},
        {"\xed\xa0\x80", false},
        {"\xee\x80\x80", true},
        {"\xef\xbf\xbf", true},
        {"\xef\xbf\xc0", false},
        {"\xf0\x8f\xbf\xbf", false},
        {"\xf0\x90\x80\x80", true},
        {"\xf4\x8f\xbf\xbf", true},
        {"\xf4\x90\x80\x80", false},
        {"\xf5\x80\x80\x80", false},
        {"\xf0\x90\x80", false},
    };
    LogCapture log;
    for (const auto& [bytes, isRight] : kCases) {
        for (const char* const before : {"", "12345678"}) {  // words of eight bytes go faster
            D record;
            record.setString("a", before + std::string(bytes));
            const std::string text = "{\"a\": \"" + record.getString("a") + "\"}";
            EXPECT_EQ(Serialization::serialize(record), isRight ? text : "{}") << bytes;
            EXPECT_EQ(Serialization::deserialize(text).size(), isRight ? 1U : 0U) << bytes;
        }
    }
}

TEST(Serialization, RefusesWhatIsNotJsonWithOneLine) {
    // Each message once or twice; fuzz/corpus/json has more texts that are refused.
    const std::pair<std::string, std::string> kCases[] = {
        {" ", "'[' or '{' expected near end of file"},
        {"[}", "unexpected token near '}'"},
        {"[1 2]", "']' expected near '2'"},
        {"[1] x", "end of file expected near 'x'"},
        {"{'a':1}", "string or '}' expected near '''"},
        {R"({"a"})", "':' expected near '}'"},
        {R"({"a":1 "b":2})", R"('}' expected near '"b"')"},
        {"[True]", "invalid token near 'True'"},
        {"[1e+]", "invalid token near '1e+'"},
        {"[0x1]", "']' expected near 'x'"},
        {"[-1e999]", "real number overflow near '-1e999'"},
        {"[9223372036854775808]", "too big integer near '9223372036854775808'"},
        {"[-9223372036854775809]", "too big negative integer near '-9223372036854775809'"},
        {"[99999999999999999999.]", "invalid token"},
        {"[123456789012345678901]", "too big integer"},
        {R"(["])", R"(premature end of input near '"]')"},
        {"[\"\n\"]", R"(unexpected newline near '"')"},
        {"[\"\t\"]", R"(control character 0x9 near '"')"},
        {R"(["\x"])", R"(invalid escape near '"\x')"},
        {R"(["\u0000"])", R"(\u0000 is not allowed without JSON_ALLOW_NUL near '"\u0000"')"},
        {R"(["\u0000\u0000"])",
         R"(\u0000 is not allowed without JSON_ALLOW_NUL near '"\u0000\u0000"')"},
        {R"(["\u00g0"])", R"(invalid escape near '"\u00g')"},
        {R"(["\ud800\ue000"])", R"(invalid Unicode '\uD800\uE000' near '"\ud800\ue000"')"},
        {R"(["\udc00"])", R"(invalid Unicode '\uDC00' near '"\udc00"')"},
        {"[\"\\\xff\"]", "unable to decode byte 0xff near '\"\\'"},
        {R"({"\u0000":1})", R"(NUL byte in object key not supported near '"\u0000"')"},
        {R"(["\ud800"])", R"(invalid Unicode '\uD800' near '"\ud800"')"},
        {R"(["\ud800\u0041"])", R"(invalid Unicode '\uD800\u0041' near '"\ud800\u0041"')"},
        {R"(["more than twenty bytes" 1])", "']' expected near '1'"},
        {R"(["a" "more than twenty bytes"])", "']' expected"},
        {"%s%n[", "'[' or '{' expected near '%'"},
        {"[\"\xff\"]", "unable to decode byte 0xff near '\"'"},
        {"[1\xff", "unable to decode byte 0xff near '1'"},
        {"\xff", "unable to decode byte 0xff"},
        {"[\"\\ü\"]", "invalid escape near '\"\\\xc3'"},
        {"\xef\xbb\xbf[]", "'[' or '{' expected near '\xef\xbb\xbf'"},
    };
    LogCapture log;
    for (const auto& [text, reason] : kCases) {
        EXPECT_EQ(Serialization::deserialize(text).size(), 0U);
        EXPECT_EQ(log.take(), Lines{"5 JSON parsing error: " + text});
        EXPECT_TRUE(Serialization::deserializeArray(text).empty());
        EXPECT_EQ(log.take(), Lines{"5 JSON loading error: " + reason}) << text;
    }
}

TEST(Serialization, CarriesTheSameNestingInBothDirections) {
    LogCapture log;
    D record;
    for (const char* const innermost : {"{}", "1"}) {
        const std::string deepest = nested(2047, innermost);
        record = Serialization::deserialize(deepest);
        EXPECT_EQ(Serialization::serialize(record), deepest);
    }
    EXPECT_EQ(log.take(), Lines());

    EXPECT_EQ(Serialization::serializeArray({D(), record, D()}), "");
    record = Serialization::deserialize(nested(2045, "[1]"));
    for (int i = 0; i < 3; ++i)
        record.setObject("a", record);
    record.setIntegerArray("b", {1});
    EXPECT_EQ(Serialization::serialize(record), "");
    EXPECT_EQ(log.take(), Lines(2, "5 JSON nesting error: more than 2047 levels"));
    EXPECT_EQ(Serialization::deserialize(nested(2048, "1")).size(), 0U);
    EXPECT_EQ(Serialization::deserialize(std::string(300000, '[')).size(), 0U);
    EXPECT_EQ(log.take().size(), 2U);
}

TEST(Serialization, CopiesNoValueOncePerLevel) {
    std::string payload = "[\"first\"";
    for (int i = 0; i < 5000; ++i)
        payload += ", \"longer than a short string\"";
    const auto cost = [&](int levels) {
        const std::string text = nested(levels, payload + ']');
        const std::clock_t start = std::clock();
        EXPECT_EQ(Serialization::serialize(Serialization::deserialize(text)), text);
        return std::clock() - start;
    };
    EXPECT_LT(cost(1999), 20 * cost(1));  // about 2 times; a copy at each level would take hundreds
}

}  // namespace
}  // namespace NIVUR
