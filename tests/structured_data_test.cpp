#include <gtest/gtest.h>
#include <nivur/serialization.h>
#include <pthread.h>

#include <cfloat>
#include <cmath>
#include <ctime>
#include <map>
#include <random>
#include <sstream>

#include "support/log_capture.h"

namespace NIVUR {

using testing::PrintToString;

/// What all ten getters give, each at the place of its type's number.
std::vector<std::string> printValues(const Dictionary& d, const std::string& key) {
    const auto each = [](const auto&... values) { return Lines{PrintToString(values)...}; };
    return each(0, d.getInteger(key), d.getString(key), d.getDecimal(key), d.getBoolean(key),
                d.getObject(key), d.getIntegerArray(key), d.getStringArray(key),
                d.getDecimalArray(key), d.getBooleanArray(key), d.getObjectArray(key));
}

/// Prints "KEY:TYPE=VALUE " for each of allKeys().
void PrintTo(const Dictionary& dictionary, std::ostream* out) {
    *out << '{';
    for (const std::string& key : dictionary.allKeys()) {
        const Dictionary::ValueType type = dictionary.getType(key);
        *out << key << ':' << type << '=' << printValues(dictionary, key)[type] << ' ';
    }
    *out << '}';
}

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

using Setter = std::function<void(D&, const std::string& key)>;

template <class Argument>
Setter with(void (D::*set)(const std::string&, Argument), const std::decay_t<Argument>& value) {
    return [=](D& record, const std::string& key) { (record.*set)(key, value); };
}

const long double kHuge = DBL_MAX * 2.0L;  // beyond double

/// Values of every type, and the JSON text of each if it has one.
const std::vector<std::pair<Setter, std::string>>& values() {
    static const std::string cut("x\0y", 3);  // ends at its NUL in JSON
    static const std::vector<std::pair<Setter, std::string>> all = {
        {with(&D::setInteger, 1LL << 31), "-2147483648"},
        {with(&D::setString, "\\/\x01 – 😀"), R"("\\/\u0001 – 😀")"},
        {with(&D::setString, cut), R"("x")"},
        {with(&D::setString, "\xff"), ""},
        {with(&D::setDecimal, -0.1L), "-0.10000000000000001"},
        {with(&D::setDecimal, kHuge), ""},
        {with(&D::setBoolean, true), "true"},
        {with(&D::setObject, D()), "{}"},
        {with(&D::setIntegerArray, {~(1LL << 31), 1LL << 32}), "[2147483647, 0]"},
        {with(&D::setStringArray, {"b", "\xed\xa0\x80", cut}), R"(["b", "x"])"},
        {with(&D::setDecimalArray, {std::nanl(""), -HUGE_VALL, kHuge, -kHuge, 2}), "[2.0]"},
        {with(&D::setBooleanArray, {true, false}), "[true, false]"},
        {with(&D::setBooleanArray, {}), "[]"},
        {with(&D::setObjectArray, {D(), D()}), "[{}, {}]"}};
    return all;
}

TEST(Dictionary, HoldsEachKeyOnceInTheGroupOfItsType) {
    const std::string keys[] = {"", "B", "a", "ab", "abc", "\n", "\x80", std::string("a\0b", 3)};
    const int kGroup[] = {-1, 1, 0, 2, 3, 4, 6, 5, 7, 8, 9};  // of each type, in allKeys()
    std::map<std::pair<int, std::string>, std::string> model;
    std::mt19937 random(4);  // NOLINT(cert-msc32-c,cert-msc51-cpp): every run is the same
    Dictionary record;
    for (int step = 0; step < 2000; ++step) {
        const std::string& key = keys[random() % 8];
        model.erase({kGroup[record.getType(key)], key});
        if (const std::size_t value = random() % 16; value < values().size()) {
            Dictionary single;
            values()[value].first(single, key);
            model[{kGroup[single.getType(key)], key}] = PrintToString(single);
            values()[value].first(record, key);
        } else {
            record.erase(key);
        }
        if (step % 64 == 0) {
            Dictionary copy(record);
            record.clear();
            record = step % 128 == 0 ? copy : std::move(copy);
        }
        std::string expected = "{";
        for (const auto& [place, text] : model) {
            expected += text.substr(1, text.size() - 2);
        }
        ASSERT_EQ(PrintToString(record), expected + "}") << step;
        ASSERT_EQ(record.size(), model.size());
        ASSERT_EQ(record.hasKey(key), record.getType(key) != Dictionary::TYPE_NONE);
    }
    const Lines defaults = {"0", "0", "\"\"", "0", "false", "{}", "{}", "{}", "{}", "{}", "{}"};
    EXPECT_EQ(printValues(record, "absent"), defaults);
    EXPECT_EQ(printValues(Dictionary(), ""), defaults);
}

TEST(Dictionary, OwnsDeepCopiesAlsoOfItself) {
    Dictionary record;
    record.setObject("a", record);
    record.setObject("a", record);  // holds the earlier "a"
    record.setInteger("n", 1LL << 40);
    record.setObjectArray("b", {record});
    const std::string expected =
        "{n:1=1099511627776 a:5={a:5={} } b:10={ {n:1=1099511627776 a:5={a:5={} } } } }";
    const Dictionary& same = record;
    record = same;
    const Dictionary copy = record;
    Dictionary nested = record.getObject("a");
    nested.clear();
    EXPECT_EQ(PrintToString(record), expected);
    record.setObject("a", nested);
    EXPECT_EQ(PrintToString(copy), expected);
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
    const std::pair<std::string, std::string> kKeys[] = {
        {"", R"("")"}, {"ü\t", R"("ü\t")"}, {std::string("x\0y", 3), R"("x")"}, {"\xc0\x80", ""}};
    for (const auto& [key, keyText] : kKeys) {
        for (const auto& [set, value] : values()) {
            D record;
            set(record, key);
            std::string text = "{";
            if (!keyText.empty() && !value.empty()) {
                text.append(keyText).append(": ").append(value);
            }
            text += '}';
            EXPECT_EQ(Serialization::serialize(record), text);
            EXPECT_EQ(Serialization::serializeArray({record, D()}), '[' + text + ", {}]");
        }
    }
    EXPECT_EQ(Serialization::serializeArray({}), "[]");
}

TEST(Serialization, ReadsEveryShapeByTheTypeOfItsParts) {
    const std::pair<const char*, const char*> kCases[] = {
        {" \t\r\n{ } \n", "{}"},
        {R"({"a":1,"b":2,"":-0,"a":"last"})", "{a:2=\"last\" :1=0 b:1=2 }"},
        {R"({"a":2147483648,"b":-2147483649,"c":9223372036854775807})",
         "{a:1=2147483647 b:1=-2147483648 c:1=2147483647 }"},
        {R"({"a":1.0,"b":1e2,"c":-0.5E-1,"d":1e-400})", "{a:3=1 b:3=100 c:3=-0.05 d:3=0 }"},
        {R"({"a":true,"b":false,"c":{"d":null}})", "{a:4=true b:4=false c:5={} }"},
        {R"({"a":[],"b":[null,1],"c":[[1],2]})", "{}"},
        {R"({"a":[1,"x",2.5,3,true,null,[4],{}],"b":["x",1,"y"]})",
         "{b:7={ \"x\", \"y\" } a:6={ 1, 3 } }"},
        {R"({"a":[9007199254740993,9223372036854775807,-9223372036854775808]})",
         "{a:6={ 9007199254740992, 9223372036854775807, -9223372036854775808 } }"},
        {R"({"a":[2.5,1,1e0],"b":[false,true,1],"c":[true,false]})",
         "{a:8={ 2.5, 1 } b:9={ false, true } c:9={ true, false } }"},
        {R"({"a":[{"b":1},2,{},[{}]]})", "{a:10={ {b:1=1 }, {} } }"},
        {R"([{"a":1}])", "{}"},
    };
    LogCapture log;
    for (const auto& [text, record] : kCases) {
        EXPECT_EQ(PrintToString(Serialization::deserialize(text)), record) << text;
    }
    EXPECT_EQ(Serialization::deserialize(R"({"a":"\u00fc\ud83d\ude00\"\\\/\b"})").getString("a"),
              "ü😀\"\\/\b");
    EXPECT_EQ(PrintToString(Serialization::deserializeArray(R"([{"a":1},2,null,[{"b":3}]])")),
              "{ {a:1=1 }, {}, {}, {} }");
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
