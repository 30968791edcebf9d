// The fuzz targets: each compares the library with a model of it.

#include <nivur/nivur.h>

#include <cstdlib>
#include <map>

#include "../tests/support/log_capture.h"
#include "dictionary_model.h"
#include "json_judge.h"
#include "number_model.h"
#include "private/common/interface_dump.h"
#include "private/common/socket_posix.h"
#include "ring_model.h"

namespace NIVUR {

void check(bool holds, const char* promise) {
    if (holds) return;
    std::fprintf(stderr, "fuzz: broken: %s\n", promise);
    std::abort();
}

namespace {

void checkRoundTrip(const Dictionary& record) {
    const std::string written = Serialization::serialize(record);
    check(judge::writes(record, written), "the judge writes the same");
    checkReadAgain(record);
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

void dictionary(Input& input) {
    checkRoundTrip(DictionaryModel(input).run());
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
    {"netlink", netlink},     {"numbers", checkNumbers},  {"ring", checkRing}};

}  // namespace
}  // namespace NIVUR

/// The environment variable NIVUR_FUZZ_TARGET selects the target.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const auto target = NIVUR::kTargets.at(std::getenv("NIVUR_FUZZ_TARGET"));
    NIVUR::Input input(data, size);
    target(input);
    return 0;
}
