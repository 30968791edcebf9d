// The fuzz targets: each compares the library with a model of it.

#include <nivur/nivur.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <map>

#include "../tests/support/log_capture.h"
#include "json_judge.h"
#include "private/common/interface_dump.h"
#include "private/common/socket_posix.h"

namespace NIVUR {
namespace {

void check(bool holds, const char* promise) {
    if (holds) return;
    std::fprintf(stderr, "fuzz: broken: %s\n", promise);
    std::abort();
}

/// The input, consumed from its front; after its end come zeros.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : _rest(data, data + size) {}
    bool empty() const { return _rest.empty(); }
    std::string rest() { return std::move(_rest); }
    unsigned below(unsigned end) { return number<uint8_t>() % end; }
    template <class Number>
    Number number() {
        Number value{};
        _rest.erase(0, _rest.copy(reinterpret_cast<char*>(&value), sizeof(value)));
        return value;
    }

  private:
    std::string _rest;
};

// print(value, written): canonical text of `value`; with `written`, of what should remain after a
// round trip through JSON ("" if nothing).

std::string print(long long value, bool written) {
    return std::to_string(written ? static_cast<int32_t>(value) : value);
}

std::string print(bool value, bool /*written*/) {
    return value ? "true" : "false";
}

std::string print(long double value, bool written) {
    char text[64];
    std::snprintf(text, sizeof(text), "%La", written ? static_cast<double>(value) : value);
    return written && !std::isfinite(static_cast<double>(value)) ? "" : text;
}

std::string print(const std::string& value, bool written) {
    const std::string text = written ? value.c_str() : value;
    const bool isUTF8 = text.find('\xff') == std::string::npos;  // the only invalid byte of inputs
    return written && !isUTF8 ? "" : '"' + text + '"';
}

std::string print(const Dictionary& d, bool written);

template <class Value>
std::string print(const std::vector<Value>& values, bool written) {
    std::string text;
    for (const Value& value : values) {
        const std::string element = print(value, written);
        text += element.empty() ? "" : element + ", ";
    }
    return written && text.empty() ? "" : '[' + text + ']';
}

/// The results of all ten getters, each at the index of its type.
std::vector<std::string> printAll(const Dictionary& d, const std::string& key, bool written) {
    const auto all = [written](const auto&... values) {
        return std::vector<std::string>{"", print(values, written)...};
    };
    return all(d.getInteger(key), d.getString(key), d.getDecimal(key), d.getBoolean(key),
               d.getObject(key), d.getIntegerArray(key), d.getStringArray(key),
               d.getDecimalArray(key), d.getBooleanArray(key), d.getObjectArray(key));
}

std::string print(const Dictionary& d, bool written) {
    std::vector<std::array<std::string, 2>> members;
    for (const std::string& key : d.allKeys()) {
        const std::string name = print(key, written);
        const std::string value = printAll(d, key, written)[d.getType(key)];
        if (name.empty() || (value.empty() && d.getType(key) <= Dictionary::TYPE_OBJECT)) continue;
        const auto isSame = [&](const auto& member) { return member[0] == name; };
        members.erase(std::remove_if(members.begin(), members.end(), isSame), members.end());
        members.push_back({name, value});  // the last of each name, even if it is an empty array
    }
    std::string text;
    for (const auto& [name, value] : members)
        text += value.empty() ? "" : name + ": " + value + ", ";
    return '{' + text + '}';
}

void checkRoundTrip(const Dictionary& record) {
    const std::string written = Serialization::serialize(record);
    check(judge::writes(record, written), "the judge writes the same");
    const Dictionary again = Serialization::deserialize(written);
    check(print(again, false) == print(record, true), "what is written is read again");
}

void json(Input& input) {
    LogCapture log;
    const std::string text = input.rest();
    const Dictionary record = Serialization::deserialize(text);
    const std::vector<Dictionary> records = Serialization::deserializeArray(text);
    const judge::Reading right = judge::read(text);
    const Lines refusal{std::string("5 JSON parsing error: ") + text.c_str(),
                        "5 JSON loading error: " + right.error};
    check(log.take() == (right.error.empty() ? Lines{} : refusal),
          "the judge refuses the same with the same message");
    check(print(record, false) == print(right.record, false), "the judge reads the same");
    check(print(records, false) == print(right.records, false), "the judge reads the same records");
    checkRoundTrip(record);
    const std::string written = Serialization::serializeArray(records);
    const std::string again = print(Serialization::deserializeArray(written), false);
    check(again == (records.empty() ? "[]" : print(records, true)), "records are read again");
    check(log.take().empty(), "what is written can be read");
}

template <class Make>
auto list(Input& input, Make make) {
    std::vector<decltype(make())> values(input.below(4));
    for (auto&& value : values)
        value = make();
    return values;
}

void dictionary(Input& input) {
    using D = Dictionary;
    static const std::string kTexts[] = {
        "", "a", "\xc3\xbc\x01\"", std::string("x\0y", 3), "\xff", "longer than a short string",
        "x"};
    D record;
    std::map<std::pair<unsigned, std::string>, std::string> model;  // in the order of allKeys()
    const auto integer = [&] { return input.number<long long>(); };
    const auto boolean = [&] { return input.below(2) == 1; };
    const auto string = [&] { return kTexts[input.below(7)]; };
    const auto object = [&] { return print(record, false).size() < 99 ? record : D(); };
    const auto decimal = [&] {
        return std::ldexp(static_cast<long double>(integer()), input.number<int16_t>());
    };
    std::string expected = "{}";
    for (int step = 0; step < 30 && !input.empty(); ++step) {
        const D before(record);
        const std::string key = string();
        const unsigned operation = input.below(13);
        const auto erase = [&] {
            for (unsigned group = 0; group < 10; ++group)
                model.erase({group, key});
        };
        const auto put = [&](auto set, const auto& value) {
            const std::string printed = print(value, false);
            (record.*set)(key, value);
            erase();
            model[{operation, key}] = printed;
        };
        // clang-format off
        switch (operation) {
            case 0: put(&D::setString, string()); break;
            case 1: put(&D::setInteger, integer()); break;
            case 2: put(&D::setDecimal, decimal()); break;
            case 3: put(&D::setBoolean, boolean()); break;
            case 4: put(&D::setObject, boolean() ? object() : D()); break;
            case 5: put(&D::setStringArray, list(input, string)); break;
            case 6: put(&D::setIntegerArray, list(input, integer)); break;
            case 7: put(&D::setDecimalArray, list(input, decimal)); break;
            case 8: put(&D::setBooleanArray, list(input, boolean)); break;
            case 9: put(&D::setObjectArray, list(input, object)); break;
            case 10: erase(); record.erase(key); break;
            case 11: record = D(std::move(record)); break;
            case 12: record = boolean() ? D(record) : static_cast<const D&>(record); break;
        }
        // clang-format on
        check(print(before, false) == expected, "a copy stands alone");
        expected = "{";
        for (const auto& [place, value] : model)
            expected += print(place.second, false) + ": " + value + ", ";
        expected += '}';
        check(print(record, false) == expected, "a key holds what it was given last");
        check(record.size() == model.size(), "a record counts its keys");
        record.erase("absent");
        check(printAll(record, "absent", false) == printAll(D(), "", false), "defaults");
        check(record.hasKey(key) == (record.getType(key) != D::TYPE_NONE), "keys have types");
    }
    D self = object();
    self.setObject("self", self);
    check(print(self.getObject("self"), false) == print(object(), false),
          "a record may hold itself");
    checkRoundTrip(self);
}

void ring(Input& input) {
    const unsigned size = input.below(70);
    RingBuffer ring(size, "model");
    std::string model;
    for (char step = 0; !input.empty(); ++step) {
        const unsigned length = input.below(size + 2), operation = input.below(16);
        std::string block(length, step);
        if (operation == 0) {
            ring.reset();
            model.clear();
        } else if (operation % 2 == 1) {
            const bool fits = length <= size - model.size();
            check(ring.write(block.data(), length) == (fits ? 0U : 2U), "what fits is written");
            model += fits ? block : "";
        } else {
            const bool there = length <= model.size();
            char* const data = there ? block.data() : nullptr;
            check(ring.read(data, length) == (there ? 0U : 1U), "what is there is read");
            check(!there || block == model.substr(0, length), "first in, first out");
            model.erase(0, there ? length : 0);
        }
        check(ring.getUnreadSize() == model.size(), "a ring counts its bytes");
    }
}

/// The model parses numbers from the last digit on, and generates the words from the bytes.
void numbers(Input& input) {
    std::string words;
    std::vector<uint8_t> model{7}, bytes = model;
    for (unsigned i = input.below(4); i > 0; --i) {
        const int value = input.number<int>();
        words += std::to_string(value) + "-x.\1"[input.below(4)] + " \t\n\v\f\r"[input.below(6)];
        model.push_back(static_cast<uint8_t>(value));
        check(StringUtil::string2Int(StringUtil::int2String(value)) == value, "integers return");
    }
    StringUtil::string2UInt8Vector(words, bytes);
    check(bytes == model, "words give their low bytes");
    const std::string text = input.rest(), digits = text.c_str();
    const size_t sign = digits[0] == '-' ? 1 : 0;
    uint32_t sum = 0, weight = 1;
    for (size_t i = digits.size(); i-- > sign; weight *= 10)
        sum += (static_cast<uint8_t>(digits[i]) - uint32_t{'0'}) * weight;
    const int value = StringUtil::string2Int(text);
    check(value == static_cast<int>(sign == 1 ? 0 - sum : sum), "a text is the sum of its digits");
}

void addresses(Input& input) {
    const bool isIPv6 = input.below(2) == 1;
    const auto port = input.number<uint16_t>();
    const std::string text = input.rest();
    const auto plain = platform::parseAddress(text.c_str(), port, isIPv6);
    const SocketAddress address(text, port), again(address.ip(), port);
    check(!address.isValid() || address.port() == port, "an address keeps its port");
    check(again == address && again.hash() == address.hash(), "addresses are read again");
    check(plain == SocketAddress::fromPlatform(plain.data(), plain.size()), "bytes are enough");
    if (address.isValid() && address.isIPv6() == isIPv6 && address.scopeId() == 0 &&
        text.find('%') > text.size())
        check(plain == address, "without a scope there is one reading");
    check(address.isIPv6() || address.ip() == (address.isValid() ? text : ""), "IPv4 has one text");
}

/// Checks that addresses arrive in order, within the received bytes, and not more than `most`.
struct Visitor final : platform::AddressVisitor {
    Visitor(const std::vector<uint8_t>& bytes, unsigned limit)
        : begin(bytes.data()), next(begin), end(next + bytes.size()), most(limit) {}
    bool visit(const platform::DumpedAddress& found) override {
        check(most > 0, "a walk ends when its visitor says so");
        check(found.family == AF_INET || found.family == AF_INET6, "addresses have a family");
        const auto [local, localLength] = found.local;
        check(local == nullptr || (local >= begin && local + localLength <= end), "own ones too");
        const auto [bytes, length] = found.address;
        check(bytes != nullptr || local != nullptr, "there is one of both");
        if (bytes != nullptr) {
            check(bytes >= next && bytes + length <= end, "addresses are received");
            next = bytes + length;
        }
        return --most > 0;
    }
    const uint8_t *begin, *next, *end;
    unsigned most;
};

void netlink(Input& input) {
    const unsigned most = 1 + input.below(8);
    const std::string text = input.rest();
    const std::vector<uint8_t> bytes(text.begin(), text.end());  // of exact size, for the sanitizer
    Visitor visitor(bytes, most);
    const auto state = platform::walkAddressDump(bytes.data(), bytes.size(), visitor);
    check((state == platform::DumpState::STOPPED) == (visitor.most == 0), "a walk tells its end");
}

const std::map<std::string, void (*)(Input&)> kTargets = {
    {"addresses", addresses}, {"dictionary", dictionary}, {"json", json},
    {"netlink", netlink},     {"numbers", numbers},       {"ring", ring}};

}  // namespace
}  // namespace NIVUR

/// The environment variable NIVUR_FUZZ_TARGET selects the target.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const auto target = NIVUR::kTargets.at(std::getenv("NIVUR_FUZZ_TARGET"));
    NIVUR::Input input(data, size);
    target(input);
    return 0;
}
