#include <gtest/gtest.h>
#include <nivur/serialization.h>
#include <pthread.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <ctime>
#include <sstream>

#include "support/log_capture.h"

namespace NIVUR {
namespace {

using D = Dictionary;

/// `value` in so many levels of nesting, of which every third is an array and all others objects.
std::string nested(int levels, const std::string& value) {
    std::string text = value;
    for (int level = levels - 1; level >= 0; --level) {
        text.insert(0, level % 3 == 2 ? "[" : R"({"a": )").append(level % 3 == 2 ? "]" : "}");
    }
    return text;
}

TEST(Dictionary, NestingCostsNoStackToCopyOrDestroy) {
    D deep = Serialization::deserialize(nested(2047, "1"));
    const auto copyAndDestroy = [](void* record) -> void* {
        const D copy(*static_cast<D*>(record));
        static_cast<D*>(record)->clear();
        return nullptr;
    };
    pthread_attr_t small{};
    pthread_attr_init(&small);
    ASSERT_EQ(pthread_attr_setstacksize(&small, 65536), 0);
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, &small, copyAndDestroy, &deep), 0);
    pthread_join(thread, nullptr);
    EXPECT_EQ(deep.size(), 0U);
}

TEST(Serialization, WritesWhatJsonCanCarry) {
    std::vector<D> records(8);
    records[0].setInteger("", 1LL << 31);
    records[1].setString("ü\t", "\\/\x01 – 😀");
    records[2].setString("\xc0\x80", "not under a key that is not UTF-8");
    records[3].setStringArray("s", {"b", "\xed\xa0\x80", std::string("x\0y", 3)});
    records[4].setDecimal(std::string("d\0y", 3), -0.1L);
    records[5].setDecimalArray("d", {std::nanl(""), -HUGE_VALL, DBL_MAX * 2.0L, 2});
    records[6].setIntegerArray("i", {~(1LL << 31), 1LL << 32});
    records[7].setBooleanArray("b", {});
    EXPECT_EQ(Serialization::serializeArray(records),
              R"([{"": -2147483648}, {"ü\t": "\\/\u0001 – 😀"}, {}, {"s": ["b", "x"]}, )"
              R"({"d": -0.10000000000000001}, {"d": [2.0]}, {"i": [2147483647, 0]}, {"b": []}])");
    EXPECT_EQ(Serialization::serializeArray({}), "[]");
}

TEST(Serialization, ReadsEveryShapeByTheTypeOfItsParts) {
    const std::pair<const char*, const char*> kCases[] = {
        {" \t\r\n{ } \n", "{}"},
        {R"({"a":1,"b":2,"":-0,"a":"last"})", R"({"a": "last", "": 0, "b": 2})"},
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
        EXPECT_EQ(Serialization::serialize(Serialization::deserialize(text)), record) << text;
    }
    EXPECT_EQ(Serialization::deserialize(R"({"a":"\u00fc\ud83d\ude00\"\\\/\b"})").getString("a"),
              "ü😀\"\\/\b");
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

TEST(Serialization, RefusesWhatIsNotJsonWithOneLine) {
    std::istringstream texts(
        "` `null`1`\"a\"`{`[`]`[}`[1`[1,]`[,1]`[1 2]`[1]]`[1] x`{}{}`{a:1}`{'a':1}`{\"a\"}`{1:2}`"
        "{\"a\":}`{\"a\":1,}`{\"a\":1 \"b\":2}`[True]`[nul]`[nan]`[Infinity]`[01]`[-]`[+1]`[.5]`"
        "[1.]`[1e]`[1e+]`[0x1]`[1e999]`[-1e999]`[9223372036854775808]`[-9223372036854775809]`[\"]`"
        "[\"\n\"]`[\"\t\"]`[\"\\x\"]`[\"\\u12\"]`[\"\\u0000\"]`{\"\\u0000\":1}`[\"\\ud800\"]`"
        "[\"\\udc00\"]`[\"\\ud800\\u0041\"]`[\"\xff\"]`[\"\xc0\xaf\"]`[\"\xed\xa0\x80\"]`"
        "[\"\xf4\x90\x80\x80\"]`\xef\xbb\xbf[]`[1] // no`/**/[]`%s%n[");
    LogCapture log;
    for (std::string text; std::getline(texts, text, '`');) {
        EXPECT_EQ(Serialization::deserialize(text).size(), 0U);
        EXPECT_EQ(log.take(), Lines{"5 JSON parsing error: " + text});
        EXPECT_TRUE(Serialization::deserializeArray(text).empty());
        const std::string line = log.take().at(0);
        EXPECT_EQ(line.rfind("5 JSON loading error: ", 0), 0U) << line;
        EXPECT_NE(line, "5 JSON loading error: " + text);
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
    record.setObject("a", record);
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
    for (int i = 0; i < 5000; ++i) {
        payload += ", \"longer than a short string\"";
    }
    const auto cost = [&](int levels) {
        const std::string text = nested(levels, payload + ']');
        const std::clock_t start = std::clock();
        EXPECT_EQ(Serialization::serialize(Serialization::deserialize(text)), text);
        return std::clock() - start;
    };
    EXPECT_LT(cost(1999), 20 * cost(1));  // some 2 times, and hundreds with a copy per level
}

}  // namespace
}  // namespace NIVUR
