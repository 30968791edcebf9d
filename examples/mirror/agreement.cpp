#include "agreement.h"

#include <nivur/dictionary.h>
#include <nivur/serialization.h>

#include <charconv>

using NIVUR::Dictionary;
using NIVUR::Serialization;

namespace mirror {

namespace {

// A size is text: JSON integers are written in 32 bits.
std::optional<uint64_t> sizeOf(const Dictionary& record) {
    const std::string text = record.getString("size");
    uint64_t size = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), size);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return size;
}

}  // namespace

std::string Offer::toJson() const {
    Dictionary record;
    record.setString("name", name);
    record.setString("size", std::to_string(size));
    record.setInteger("frameSize", frameSize);
    record.setString("time", time);
    return Serialization::serialize(record);
}

std::optional<Offer> Offer::fromJson(const std::string& text) {
    const Dictionary record = Serialization::deserialize(text);
    const auto size = sizeOf(record);
    const long long frameSize = record.getInteger("frameSize");
    if (!size || frameSize <= 0) {
        return std::nullopt;
    }
    return Offer{record.getString("name"), *size, static_cast<unsigned int>(frameSize),
                 record.getString("time")};
}

std::string Result::toJson() const {
    Dictionary record;
    record.setString("size", std::to_string(size));
    record.setString("checksum", checksum);
    return Serialization::serialize(record);
}

std::optional<Result> Result::fromJson(const std::string& text) {
    const Dictionary record = Serialization::deserialize(text);
    const auto size = sizeOf(record);
    if (!size) {
        return std::nullopt;
    }
    return Result{*size, record.getString("checksum")};
}

}  // namespace mirror
